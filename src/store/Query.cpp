#include "store/Query.h"

#include <algorithm>
#include <cassert>
#include <charconv>

namespace qz::store {

namespace {

/// What stands between two quotes as a text; nothing when one of its quotes is alone.
std::optional<std::string> unquoted(std::string_view text)
{
    if (text.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    std::string result;
    for (;;) {
        const auto quote = text.find('\'');
        result.append(text.substr(0, quote));
        if (quote == std::string_view::npos) {
            return result;
        }
        if (!text.substr(quote + 1).starts_with('\'')) {
            return std::nullopt;
        }
        result += '\'';
        text.remove_prefix(quote + 2);
    }
}

/// A whole number of 64 bits, or a number with digits on both sides of its point; a sign may stand before.
std::optional<platform::Value> number_in(std::string_view text)
{
    constexpr std::size_t kLongest = 40; // no number of the engine is longer
    const auto digits = text.substr(text.starts_with('-') ? 1 : 0);
    const auto point = (std::min)(digits.find('.'), digits.size());
    const auto all_digits = [](std::string_view part) {
        return !part.empty() && part.find_first_not_of("0123456789") == std::string_view::npos;
    };
    if (text.size() > kLongest || !all_digits(digits.substr(0, point))
        || (point < digits.size() && !all_digits(digits.substr(point + 1)))) {
        return std::nullopt;
    }
    const auto* const end = text.data() + text.size();
    std::int64_t whole = 0;
    if (const auto read = std::from_chars(text.data(), end, whole);
        read.ec == std::errc{} && read.ptr == end) {
        return platform::Value(whole);
    }
    double number = 0;
    std::from_chars(text.data(), end, number);
    return platform::Value(number);
}

std::optional<platform::Value> literal_in(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t\r\n";
    const auto first = text.find_first_not_of(kBlanks);
    text = first == std::string_view::npos ? std::string_view{}
                                           : text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
    if (text.size() < 2 || !text.starts_with('\'') || !text.ends_with('\'')) {
        return number_in(text);
    }
    return unquoted(text.substr(1, text.size() - 2));
}

} // namespace

Parameter::Parameter(Quoted quoted) : value_(unquoted(quoted.text)) { }

Parameter::Parameter(Literal literal) : value_(literal_in(literal.text)) { }

platform::Value Parameter::take_value(const platform::Statement& statement)
{
    if (!value_) {
        throw syntax_error(statement);
    }
    return *std::move(value_);
}

std::string stated_text(const platform::Statement& statement, std::initializer_list<std::string_view> values)
{
    std::string result;
    auto rest = statement.stated;
    for (const auto value : values) {
        const auto place = rest.find("{}");
        assert(place != std::string_view::npos);
        result.append(rest.substr(0, place)).append(value);
        rest.remove_prefix(place + 2);
    }
    assert(rest.find("{}") == std::string_view::npos);
    return result.append(rest);
}

EngineError syntax_error(const platform::Statement& statement)
{
    constexpr std::size_t kLongest = 30;
    const auto is_word = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == ' ';
    };
    const auto start = statement.stated.substr(0, kLongest);
    const auto end = std::find_if_not(start.begin(), start.end(), is_word);
    return database_error(DatabaseError::Syntax,
        "Syntax error in the statement that begins with \"" + std::string(start.begin(), end) + "\"");
}

Rows::Row Rows::front() const
{
    if (empty()) {
        throw database_error(DatabaseError::NoCurrentRow,
            "Either BOF or EOF is True, or the current record has been deleted. "
            "Requested operation requires a current record.");
    }
    return {*this, 0};
}

} // namespace qz::store
