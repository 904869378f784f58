#include "Wire.h"

#include "helpers/Frame.h"
#include "helpers/ProtocolKeywords.h"

namespace velto::bench {

namespace {

const auto& kWords = qz::helpers::protocol_keywords();
constexpr std::string_view kFiller = "\r\n";

} // namespace

Unit unit_in(std::string_view text)
{
    const auto number_begin = text.find(kWords.NumberStart);
    const auto number_end = text.find(kWords.NumberEnd, number_begin);
    if (number_begin == std::string_view::npos || number_end == std::string_view::npos) {
        return {};
    }
    auto rest = text.substr(number_end + 1);
    if (!rest.starts_with(kFiller)) {
        return {};
    }
    rest.remove_prefix(kFiller.size());
    rest = rest.substr(0, rest.find_first_of("\x03\x04"));
    const auto blank = (std::min)(rest.find(' '), rest.size());
    return {text.substr(number_begin + 1, number_end - number_begin - 1), rest.substr(0, blank),
        rest.substr((std::min)(blank + 1, rest.size()))};
}

std::string_view value_in(std::string_view body, std::string_view key)
{
    for (auto at = body.find(key); at != std::string_view::npos; at = body.find(key, at + 1)) {
        const auto end = at + key.size();
        if ((at == 0 || body[at - 1] == ' ') && end < body.size() && body[end] == '=') {
            const auto value = body.substr(end + 1);
            return key == "msg" ? value : value.substr(0, value.find(' '));
        }
    }
    return {};
}

void add_envelope(
    std::string& output, std::string_view number, std::string_view keyword, std::string_view body)
{
    output.append(kWords.EnvelopeStart).append(kWords.NumberStart).append(number).append(kWords.NumberEnd);
    output.append(kFiller).append(keyword).append(" ").append(body).append(kWords.EnvelopeEnd);
}

void add_frame(std::string& output, std::string_view number, std::string_view keyword, std::string_view body)
{
    std::string envelope;
    envelope.reserve(number.size() + keyword.size() + body.size() + 8);
    add_envelope(envelope, number, keyword, body);
    output.append(qz::helpers::write_frame({1, 1, 1, 1}, envelope));
}

} // namespace velto::bench
