#include "platform/database/Tokenizer.h"

#include "base/Text.h"

#include <array>
#include <cstdint>

namespace qz::platform {

namespace {

enum class Class : std::uint8_t { Foreign, Blank, Letter, Digit, Symbol };

constexpr std::array<Class, 256> kClasses = [] {
    std::array<Class, 256> classes{};
    const auto set = [&](std::string_view characters, Class c) {
        for (const char character : characters) {
            classes[static_cast<unsigned char>(character)] = c;
        }
    };
    set(" \t\r\n", Class::Blank);
    set("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_", Class::Letter);
    set("0123456789", Class::Digit);
    set("(),.*+=<>;", Class::Symbol);
    return classes;
}();

Class class_of(char c)
{
    return kClasses[static_cast<unsigned char>(c)];
}

/// No number of the engine is longer, and what is longer would not fit any type.
constexpr std::size_t kLongestNumber = 40;

/// Length of the run of characters from `start` on that are letters or digits.
std::size_t word_end(std::string_view text, std::size_t start)
{
    while (start < text.size()
        && (class_of(text[start]) == Class::Letter || class_of(text[start]) == Class::Digit)) {
        ++start;
    }
    return start;
}

std::size_t digits_end(std::string_view text, std::size_t start)
{
    while (start < text.size() && class_of(text[start]) == Class::Digit) {
        ++start;
    }
    return start;
}

bool is_comparison(const Token& token)
{
    return token.kind == TokenKind::Symbol
        && (token.text[0] == '=' || token.text[0] == '<' || token.text[0] == '>');
}

} // namespace

std::string unquoted(const Token& text)
{
    return text.doubled_quotes ? replace_all(text.text, "''", "'") : std::string(text.text);
}

Token Tokenizer::next()
{
    const Token token = cut();
    after_comparison_ = is_comparison(token);
    return token;
}

Token Tokenizer::cut()
{
    while (!rest_.empty() && class_of(rest_.front()) == Class::Blank) {
        rest_.remove_prefix(1);
    }
    if (rest_.empty()) {
        return {};
    }
    switch (class_of(rest_.front())) {
    case Class::Letter:
        return word();
    case Class::Digit:
        return number(0);
    case Class::Symbol:
        return symbol();
    default:
        break;
    }
    switch (rest_.front()) {
    case '[':
        return bracketed_word();
    case '\'':
        return literal();
    case '-':
        // Only a value that is compared has a sign: a row limit has none, and no text of the engine
        // subtracts.
        return after_comparison_ ? number(1) : Token{TokenKind::Refused};
    case '{':
        return holes_ == Holes::Yes && rest_.starts_with("{}") ? take(TokenKind::Hole, 2)
                                                               : Token{TokenKind::Refused};
    default:
        return {TokenKind::Refused};
    }
}

Token Tokenizer::word()
{
    return take(TokenKind::Word, word_end(rest_, 1));
}

Token Tokenizer::bracketed_word()
{
    const auto end = word_end(rest_, 1);
    if (end == 1 || end == rest_.size() || rest_[end] != ']') {
        return {TokenKind::Refused};
    }
    const auto name = rest_.substr(1, end - 1);
    rest_.remove_prefix(end + 1);
    return {TokenKind::Word, name, true};
}

Token Tokenizer::number(std::size_t sign)
{
    auto end = digits_end(rest_, sign);
    if (end == sign) {
        return {TokenKind::Refused};
    }
    if (end + 1 < rest_.size() && rest_[end] == '.' && class_of(rest_[end + 1]) == Class::Digit) {
        end = digits_end(rest_, end + 1);
    }
    if (end > kLongestNumber || word_end(rest_, end) != end) { // 0x10, 1e5, 5abc
        return {TokenKind::Refused};
    }
    return take(TokenKind::Number, end);
}

Token Tokenizer::literal()
{
    bool doubled = false;
    auto end = rest_.find('\'', 1);
    while (end != std::string_view::npos && end + 1 < rest_.size() && rest_[end + 1] == '\'') {
        doubled = true;
        end = rest_.find('\'', end + 2);
    }
    if (end == std::string_view::npos) {
        return {TokenKind::Refused};
    }
    const auto content = rest_.substr(1, end - 1);
    if (content.find('\0') != std::string_view::npos) {
        return {TokenKind::Refused};
    }
    rest_.remove_prefix(end + 1);
    return {TokenKind::Text, content, false, doubled};
}

Token Tokenizer::symbol()
{
    if (rest_.front() == ';') {
        // A second statement behind it would be one that nobody wrote.
        const auto more = rest_.find_first_not_of(" \t\r\n", 1);
        return more == std::string_view::npos ? take(TokenKind::Symbol, 1) : Token{TokenKind::Refused};
    }
    const auto two = rest_.substr(0, 2);
    return take(TokenKind::Symbol, two == "<=" || two == ">=" || two == "<>" ? 2 : 1);
}

Token Tokenizer::take(TokenKind kind, std::size_t length)
{
    const auto text = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return {kind, text};
}

} // namespace qz::platform
