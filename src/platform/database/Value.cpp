#include "platform/database/Value.h"

#include "base/Numbers.h"
#include "base/Text.h"

#include <charconv>
#include <optional>

namespace qz::platform {

namespace {

std::optional<double> number_in(const Value::Held& held)
{
    if (const auto* integer = std::get_if<std::int64_t>(&held)) {
        return static_cast<double>(*integer);
    }
    if (const auto* real = std::get_if<double>(&held)) {
        return *real;
    }
    if (const auto* text = std::get_if<std::string>(&held)) {
        double number = 0;
        const auto* end = text->data() + text->size();
        const auto result = std::from_chars(text->data(), end, number);
        if (result.ec == std::errc{} && result.ptr == end) {
            return number;
        }
    }
    return std::nullopt;
}

} // namespace

std::string Value::text() const
{
    if (const auto* text = std::get_if<std::string>(&value_)) {
        return *text;
    }
    if (const auto* integer = std::get_if<std::int64_t>(&value_)) {
        return std::to_string(*integer);
    }
    if (const auto* real = std::get_if<double>(&value_)) {
        return decimal(*real);
    }
    if (const auto* date = std::get_if<DateTime>(&value_)) {
        return date->text();
    }
    return {};
}

std::int32_t Value::integer() const
{
    return to_integer<std::int32_t>(number());
}

double Value::number() const
{
    const auto number = number_in(value_);
    if (!number) {
        throw runtime_error(RuntimeError::TypeMismatch);
    }
    return *number;
}

bool Value::boolean() const
{
    if (const auto number = number_in(value_)) {
        return *number != 0;
    }
    const auto word = lower(text());
    return word == "true" || word == "yes" || word == "t";
}

DateTime Value::date() const
{
    if (is_null()) {
        return {};
    }
    if (const auto* date = std::get_if<DateTime>(&value_)) {
        return *date;
    }
    if (const auto* text = std::get_if<std::string>(&value_)) {
        if (const auto parsed = DateTime::parse(*text)) {
            return *parsed;
        }
    }
    throw runtime_error(RuntimeError::TypeMismatch);
}

} // namespace qz::platform
