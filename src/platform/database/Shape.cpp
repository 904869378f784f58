#include "platform/database/Shape.h"

#include "base/EngineError.h"

#include <algorithm>
#include <cassert>
#include <charconv>
#include <cstdint>
#include <optional>

namespace qz::platform {

namespace {

char folded(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// A text's tokens in one form for all its spellings, cut in one pass without an allocation.
class Normalised {
public:
    /// @return false when the text is refused, or longer than any text of a catalogue.
    bool read(std::string_view sql, Holes holes)
    {
        Tokenizer tokens(sql, holes);
        for (auto token = tokens.next(); token.kind != TokenKind::End; token = tokens.next()) {
            if (token.kind == TokenKind::Refused || !add(token)) {
                return false;
            }
        }
        return true;
    }
    std::string_view key() const { return {key_.data(), length_}; }
    std::span<const Token> literals() const { return {literals_.data(), literal_count_}; }

private:
    bool add(const Token& token)
    {
        if (token.kind != TokenKind::Word && token.kind != TokenKind::Symbol) {
            if (literal_count_ == literals_.size()) {
                return false;
            }
            literals_[literal_count_++] = token;
            return add_folded("?"); // stands for a literal: no token contains it
        }
        return add_folded(token.text);
    }
    bool add_folded(std::string_view text)
    {
        if (text.size() + 1 > key_.size() - length_) {
            return false;
        }
        for (const char c : text) {
            key_[length_++] = folded(c);
        }
        key_[length_++] = ' ';
        return true;
    }

    std::array<char, 1024>
        key_; // NOLINT(cppcoreguidelines-pro-type-member-init): only what is written is read
    std::size_t length_ = 0;
    std::array<Token, kMostLiterals> literals_{};
    std::size_t literal_count_ = 0;
};

/// The slots of a catalogue text. A bare hole directly after TOP counts rows.
std::vector<Slot> slots_of(std::string_view text)
{
    std::vector<Slot> slots;
    Tokenizer tokens(text, Holes::Yes);
    bool after_top = false;
    for (auto token = tokens.next(); token.kind != TokenKind::End; token = tokens.next()) {
        if (token.kind == TokenKind::Hole) {
            slots.push_back({after_top ? Slot::Kind::Count : Slot::Kind::Any, {}});
        } else if (token.kind == TokenKind::Text && token.text == "{}") {
            slots.push_back({Slot::Kind::Text, {}});
        } else if (token.kind == TokenKind::Text || token.kind == TokenKind::Number) {
            slots.push_back({Slot::Kind::Fixed, token});
        }
        after_top = token.kind == TokenKind::Word && token.text == "TOP";
    }
    return slots;
}

/// True for a value that stands between quotes as it is.
bool is_plain(std::string_view value)
{
    return value.find('\'') == std::string_view::npos && value.find('\0') == std::string_view::npos;
}

bool is_natural(std::string_view value)
{
    constexpr std::size_t kLongest = 18; // fits 64 bits
    return !value.empty() && value.size() <= kLongest
        && std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool is_count(const Token& token)
{
    return token.kind == TokenKind::Number && std::holds_alternative<std::int64_t>(value_of(token).held());
}

bool fits(const Slot& slot, const Token& literal)
{
    switch (slot.kind) {
    case Slot::Kind::Fixed:
        return slot.literal.kind == literal.kind && slot.literal.text == literal.text;
    case Slot::Kind::Text:
        return literal.kind == TokenKind::Text;
    case Slot::Kind::Any:
        return true;
    case Slot::Kind::Count:
        return is_count(literal);
    }
    return false;
}

/// What a failure may show of a text: its first words, which no value can reach into.
std::string first_words(std::string_view sql)
{
    constexpr std::size_t kLongest = 30;
    std::size_t end = 0;
    while (end < (std::min)(sql.size(), kLongest)
        && ((sql[end] >= 'A' && sql[end] <= 'Z') || (sql[end] >= 'a' && sql[end] <= 'z')
            || sql[end] == ' ')) {
        ++end;
    }
    return std::string(sql.substr(0, end));
}

EngineError no_shape(std::string_view sql)
{
    return database_error(
        DatabaseError::Syntax, "Syntax error in the statement that begins with \"" + first_words(sql) + "\"");
}

} // namespace

Value value_of(const Token& literal)
{
    if (literal.kind == TokenKind::Text) {
        return {unquoted(literal)};
    }
    const auto* begin = literal.text.data();
    const auto* end = begin + literal.text.size();
    std::int64_t whole = 0;
    const auto result = std::from_chars(begin, end, whole);
    if (result.ec == std::errc{} && result.ptr == end) {
        return {whole};
    }
    double number = 0;
    std::from_chars(begin, end, number); // at most 40 digits: always fits
    return {number};
}

Catalogue::Catalogue(std::span<const Statement> statements)
{
    shapes_.reserve(statements.size()); // the index points to the elements
    for (const auto& statement : statements) {
        Normalised text;
        if (!text.read(statement.text, Holes::Yes)) {
            throw runtime_error(
                RuntimeError::Internal, "No statement for a catalogue: " + std::string(statement.text));
        }
        shapes_.push_back({statement, shapes_.size(), slots_of(statement.text)});
        index_[std::string(text.key())].push_back(&shapes_.back());
    }
}

Match Catalogue::look_up(std::string_view sql) const
{
    Normalised text;
    if (!text.read(sql, Holes::No)) {
        throw no_shape(sql);
    }
    const auto found = index_.find(text.key());
    if (found == index_.end()) {
        throw no_shape(sql);
    }
    const auto literals = text.literals();
    for (const auto* shape : found->second) {
        // As many slots as literals: both stand in the key.
        if (!std::equal(shape->slots.begin(), shape->slots.end(), literals.begin(), literals.end(), fits)) {
            continue;
        }
        Match match;
        match.shape = shape;
        for (std::size_t i = 0; i < literals.size(); ++i) {
            if (shape->slots[i].kind != Slot::Kind::Fixed) {
                match.values[match.count++] = literals[i];
            }
        }
        return match;
    }
    throw no_shape(sql);
}

std::optional<Match> Catalogue::match(
    const Statement& statement, std::initializer_list<std::string_view> values) const
{
    auto& shape = by_text_[statement.text.data()];
    if (shape == nullptr) {
        shape = look_up(fill(statement, values)).shape;
    }
    Match match;
    match.shape = shape;
    const auto* value = values.begin();
    for (const auto& slot : shape->slots) {
        if (slot.kind == Slot::Kind::Fixed) {
            continue;
        }
        const bool is_text = slot.kind == Slot::Kind::Text;
        if (value == values.end() || !(is_text ? is_plain(*value) : is_natural(*value))) {
            return std::nullopt;
        }
        match.values.at(match.count++) = {is_text ? TokenKind::Text : TokenKind::Number, *value++};
    }
    return value == values.end() ? std::optional(match) : std::nullopt;
}

} // namespace qz::platform
