#include "protocol/Values.h"

#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::protocol {

namespace {

constexpr std::string_view kEntrySeparator = "#";
constexpr std::string_view kFieldSeparator = " ";
constexpr std::string_view kEmptyField = "-";
constexpr std::string_view kReplacement = "\xEF\xBF\xBD"; // U+FFFD

} // namespace

std::string without_blanks(std::string_view value)
{
    return replace_all(value, " ", helpers::protocol_keywords().BlankSubstitute);
}

std::string blank_value(const helpers::MessageParser& parser, std::string_view parameters, const char* key)
{
    return replace_all(parser.value(parameters, key), helpers::protocol_keywords().BlankSubstitute, " ");
}

std::string screen_name(const helpers::MessageParser& parser, std::string_view parameters, const char* key)
{
    return lower(blank_value(parser, parameters, key));
}

void ListText::add(std::initializer_list<std::string_view> fields)
{
    std::string_view separator = text_.empty() ? std::string_view{} : kEntrySeparator;
    for (const auto field : fields) {
        text_ += separator;
        text_ += field.empty() ? std::string(kEmptyField)
                               : replace_all(without_blanks(field), kEntrySeparator, kReplacement);
        separator = kFieldSeparator;
    }
}

void ListText::add_entry(std::string_view entry)
{
    text_ += text_.empty() ? std::string_view{} : kEntrySeparator;
    text_ += entry;
}

} // namespace qz::protocol
