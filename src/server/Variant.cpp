#include "server/Variant.h"

#include "base/Numbers.h"
#include "base/Text.h"

#include <charconv>

namespace qz::server {

namespace {

EngineError mismatch(ValueType type, std::string_view text)
{
    return runtime_error(RuntimeError::TypeMismatch,
        "Type mismatch: \"" + printable(first_characters(text, 40)) + "\" is not of type "
            + std::string(type_name(type)));
}

double whole_number(ValueType type, std::string_view text)
{
    std::int64_t number = 0;
    const auto* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (text.empty() || result.ec == std::errc::invalid_argument || result.ptr != end) {
        throw mismatch(type, text);
    }
    if (result.ec == std::errc::result_out_of_range) {
        throw runtime_error(RuntimeError::Overflow);
    }
    return static_cast<double>(number);
}

std::int32_t boolean(std::string_view text)
{
    const auto word = lower(text);
    if (word == "true" || word == "yes") {
        return -1;
    }
    if (word == "false" || word == "no") {
        return 0;
    }
    return to_integer<std::int16_t>(whole_number(ValueType::Boolean, text));
}

} // namespace

std::string_view type_name(ValueType type)
{
    switch (type) {
    case ValueType::Empty:
        return "";
    case ValueType::Boolean:
        return "BOOL";
    case ValueType::Integer16:
        return "I2";
    case ValueType::Unsigned16:
        return "UI2";
    case ValueType::Integer32:
        return "I4";
    case ValueType::Text:
        return "BSTR";
    case ValueType::Date:
        return "DATE";
    case ValueType::Texts:
        return "BSTR()";
    case ValueType::Messages:
        return "QueueMessageSmall()";
    case ValueType::Status:
        return "ServerStatus";
    case ValueType::Speed:
        return "ServerSpeed";
    }
    return "";
}

Variant variant_from_text(ValueType type, std::string_view text)
{
    switch (type) {
    case ValueType::Boolean:
        return boolean(text);
    case ValueType::Integer16:
        return std::int32_t{to_integer<std::int16_t>(whole_number(type, text))};
    case ValueType::Unsigned16:
        return std::int32_t{to_integer<std::uint16_t>(whole_number(type, text))};
    case ValueType::Integer32:
    case ValueType::Status:
    case ValueType::Speed:
        return to_integer<std::int32_t>(whole_number(type, text));
    case ValueType::Text:
        return std::string(text);
    case ValueType::Date:
        if (const auto date = DateTime::parse(text)) {
            return *date;
        }
        throw mismatch(type, text);
    default: // no member takes an argument of the other types
        throw mismatch(type, text);
    }
}

} // namespace qz::server
