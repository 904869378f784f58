#include "platform/database/StatementTrace.h"

#include "base/Text.h"
#include "helpers/SettingsCipher.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

namespace qz::platform {

namespace {

constexpr std::size_t kLongestValue = 60; // characters
constexpr std::size_t kLongestSql = 1000;
constexpr std::size_t kLongestError = 300;
constexpr std::string_view kHidden = "<hidden>";
constexpr std::array<std::string_view, 2> kSecretColumns{"password", "key"};
constexpr std::array<std::string_view, 2> kTextColumns{"message", "parameters"}; // for users to read

template <typename Names> bool is_among(const Names& names, std::string_view name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

struct Token {
    enum class Kind { Name, Parameter, Text, Sign };
    Kind kind;
    std::string text; // of a name in lower case, without its quotes
};

bool is_letter(char c)
{
    return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
        || static_cast<unsigned char>(c) >= 0x80;
}

/// Takes one token from the front.
Token take_token(std::string_view& sql)
{
    const auto take = [&](std::size_t size) {
        const auto taken = sql.substr(0, size);
        sql.remove_prefix(taken.size());
        return taken;
    };
    const char first = sql.front();
    if (first == '\'' || first == '"' || first == '`' || first == '[') {
        const auto end = sql.find(first == '[' ? ']' : first, 1);
        const auto content = sql.substr(1, end == std::string_view::npos ? end : end - 1);
        take(content.size() + 2);
        return {first == '\'' ? Token::Kind::Text : Token::Kind::Name, lower(content)};
    }
    if (is_letter(first)) {
        const auto end = std::find_if_not(sql.begin(), sql.end(), is_letter);
        return {Token::Kind::Name, lower(take(static_cast<std::size_t>(end - sql.begin())))};
    }
    constexpr std::array<std::string_view, 4> kPairs{"<>", "<=", ">=", "!="};
    const auto sign = take(is_among(kPairs, sql.substr(0, 2)) ? 2 : 1);
    return {sign == "?" ? Token::Kind::Parameter : Token::Kind::Sign, std::string(sign)};
}

std::vector<Token> tokens_of(std::string_view sql)
{
    constexpr std::string_view kBlanks = " \t\r\n";
    std::vector<Token> tokens;
    for (;;) {
        sql.remove_prefix((std::min)(sql.find_first_not_of(kBlanks), sql.size()));
        if (sql.empty()) {
            return tokens;
        }
        tokens.push_back(take_token(sql));
    }
}

/// Tells the columns that a statement's parameters belong to.
class ParameterColumns {
public:
    explicit ParameterColumns(std::string_view sql) : tokens_(tokens_of(sql))
    {
        while (at_ < tokens_.size()) {
            if (is("into") && at_ + 2 < tokens_.size() && tokens_[at_ + 2].text == "(") {
                take_insert();
            } else if (tokens_[at_].kind == Token::Kind::Parameter) {
                columns_.push_back(compared_column());
            }
            ++at_;
        }
    }

    /// The column's name in lower case; empty when it cannot be told.
    std::string_view column(std::size_t parameter) const
    {
        return parameter < columns_.size() ? std::string_view(columns_[parameter]) : std::string_view();
    }
    /// Whether the statement names one of these columns anywhere.
    template <typename Names> bool name_any(const Names& columns) const
    {
        return std::any_of(tokens_.begin(), tokens_.end(), [&](const Token& each) {
            return each.kind == Token::Kind::Name && is_among(columns, each.text);
        });
    }

private:
    bool is(std::string_view text) const { return at_ < tokens_.size() && tokens_[at_].text == text; }

    /// From "INTO table (columns)" to the end of "VALUES (…)".
    void take_insert()
    {
        std::vector<std::string> names;
        for (at_ += 3; at_ < tokens_.size() && !is(")"); ++at_) {
            if (tokens_[at_].kind == Token::Kind::Name) {
                names.push_back(tokens_[at_].text);
            }
        }
        ++at_;
        if (!is("values")) {
            return;
        }
        int depth = 0;
        std::size_t position = 0;
        for (++at_; at_ < tokens_.size(); ++at_) {
            if (is("(")) {
                ++depth;
            } else if (is(")")) {
                if (--depth == 0) {
                    return;
                }
            } else if (is(",") && depth == 1) {
                ++position;
            } else if (tokens_[at_].kind == Token::Kind::Parameter) {
                columns_.push_back(position < names.size() ? names[position] : std::string());
            }
        }
    }

    /// Of "column = ?" and the like.
    std::string compared_column() const
    {
        constexpr std::array<std::string_view, 8> kComparisons{"=", "<>", "!=", "<", ">", "<=", ">=", "like"};
        const bool compared = at_ >= 2 && is_among(kComparisons, tokens_[at_ - 1].text)
            && tokens_[at_ - 2].kind == Token::Kind::Name;
        return compared ? tokens_[at_ - 2].text : std::string();
    }

    std::vector<Token> tokens_;
    std::size_t at_ = 0;
    std::vector<std::string> columns_;
};

std::string length_of(std::string_view text)
{
    return "<" + std::to_string(character_count(text)) + " characters>";
}

std::string cut(std::string_view text, std::size_t longest)
{
    const auto begin = first_characters(text, longest);
    return printable(begin) + (begin.size() < text.size() ? "..." : "");
}

/// How the values of a column are shown.
enum class Showing { Whole, Length, Hidden };

/// A value whose column cannot be told may be that of any column that the statement names.
Showing showing_of(const ParameterColumns& columns, std::size_t parameter, bool is_text)
{
    const auto column = columns.column(parameter);
    const auto belongs = [&](const auto& names) {
        return column.empty() ? is_text && columns.name_any(names) : is_among(names, column);
    };
    return belongs(kSecretColumns) ? Showing::Hidden
        : belongs(kTextColumns)    ? Showing::Length
                                   : Showing::Whole;
}

std::string shown(const Value& value, Showing showing)
{
    if (value.is_null()) {
        return "NULL";
    }
    const auto* text = std::get_if<std::string>(&value.held());
    if (showing == Showing::Hidden) {
        return std::string(kHidden);
    }
    if (showing == Showing::Length) {
        return length_of(value.text());
    }
    if (text == nullptr) {
        return std::holds_alternative<DateTime>(value.held()) ? "'" + value.text() + "'" : value.text();
    }
    const bool is_long = character_count(*text) > kLongestValue;
    return "'" + replace_all(cut(*text, kLongestValue), "'", "''") + "'"
        + (is_long ? " " + length_of(*text) : "");
}

std::string without_quoted_parts(std::string_view error)
{
    std::string result;
    while (!error.empty()) {
        const auto begin = error.find_first_of("'\"`");
        result += error.substr(0, begin);
        if (begin == std::string_view::npos) {
            break;
        }
        const auto end = error.rfind(error[begin]); // the last one: a value may hold quotes
        result += kHidden;
        error.remove_prefix(end > begin ? end + 1 : error.size());
    }
    return result;
}

/// Databases quote values that they refuse, and give whole rows on further lines.
std::string failure(std::string_view error, bool hides)
{
    const auto line = error.substr(0, error.find_first_of("\r\n"));
    return "  failed: " + cut(hides ? without_quoted_parts(line) : line, kLongestError);
}

} // namespace

std::string trace_line(const RanStatement& statement)
{
    std::array<char, 48> time{};
    std::snprintf(time.data(), time.size(), "sql %.3f ms  ",
        std::chrono::duration<double, std::milli>(statement.time).count());
    auto line = time.data() + cut(statement.sql, kLongestSql);
    bool hides = statement.rows > 1; // what a failure quotes may be of any row
    if (!statement.values.empty()) {
        const ParameterColumns columns(statement.sql);
        for (std::size_t i = 0; i < statement.values.size(); ++i) {
            const auto& value = statement.values[i];
            const auto* text = std::get_if<std::string>(&value.held());
            const bool enciphered =
                text != nullptr && text->find(helpers::SettingsCipher::Marker) != std::string::npos;
            const auto showing = enciphered ? Showing::Hidden : showing_of(columns, i, text != nullptr);
            hides = hides || showing != Showing::Whole;
            line += i == 0 ? "  [" : ", ";
            line += shown(value, showing);
        }
        line += "]";
    }
    if (statement.rows != 1) {
        line += "  " + std::to_string(statement.rows) + " rows";
    }
    if (!statement.error.empty()) {
        line += failure(statement.error, hides);
    }
    return line;
}

} // namespace qz::platform
