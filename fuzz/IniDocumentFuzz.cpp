// A file that nobody changes keeps its bytes; what is written is read, also by the next reader; what is
// removed is gone.
#include "Fuzzing.h"

#include "base/Text.h"
#include "config/IniDocument.h"

#include <string>

namespace {

using qz::config::IniDocument;
using qz::fuzz::promise;

/// Takes the text up to the first "|" away.
std::string_view take(std::string_view& text)
{
    const auto end = text.find('|');
    const auto part = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return part;
}

} // namespace

int fuzz_ini_document(const std::uint8_t* data, std::size_t size)
{
    // section|key|value|file
    auto text = qz::fuzz::text_of(data, size);
    const auto section = take(text);
    const auto key = take(text);
    const auto value = take(text);
    IniDocument document(text);
    promise(document.bytes() == text);
    for (const auto& entry : document.entries()) {
        promise(qz::character_count(document.read(entry.section, entry.key)) <= IniDocument::kValueLimit);
    }

    const auto count = document.entries().size();
    if (!document.write(section, key, value)) {
        promise(document.bytes() == text);
        return 0;
    }
    const auto written = document.read(section, key);
    const IniDocument again(document.bytes());
    promise(again.read(section, key) == written && again.bytes() == document.bytes());
    promise(again.entries().size() <= count + 1 && again.entries().size() >= count);
    promise(document.write(section, key, "a plain value") && document.read(section, key) == "a plain value");
    document.remove(section, key);
    promise(document.read(section, key).empty() && document.entries().size() <= count);
    document.remove_section(section);
    promise(IniDocument(document.bytes()).bytes() == document.bytes());
    return 0;
}
