// The catalogue of statements as shapes: finds the statement that a finished text was made from, and the
// values in its holes. So a value never becomes part of a statement, although texts are joined as they stand.
#pragma once

#include "platform/database/Statement.h"
#include "platform/database/Tokenizer.h"
#include "platform/database/Value.h"

#include <array>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qz::platform {

/// A literal of a shape: one that belongs to the text, or a hole.
struct Slot {
    enum class Kind {
        Fixed, // 'd', 100
        Text,  // '{}': a text
        Any,   // {}: a number or a whole text literal
        Count, // {} after TOP: a whole number without sign
    };
    Kind kind = Kind::Fixed;
    Token literal; // the fixed one
};

struct Shape {
    Statement statement;
    std::size_t number = 0;  // position in the catalogue
    std::vector<Slot> slots; // in the order of the text
};

/// Most literals, holes included, that one statement can have.
inline constexpr std::size_t kMostLiterals = 16;

/// A text that has a shape. The values point into the text.
struct Match {
    const Shape* shape = nullptr;
    std::array<Token, kMostLiterals> values; // Text and Number tokens in the order of the holes
    std::size_t count = 0;

    std::span<const Token> holes() const { return {values.data(), count}; }
};

/// A Text or Number token as a value: text, whole number, or double when it is no whole number of 64 bits.
Value value_of(const Token& literal);

/// Made once from all statements. Texts that differ only in letter case, blanks or brackets of names share
/// their first shape.
class Catalogue {
public:
    /// @param statements  need not outlive the catalogue, but their texts and tables must.
    explicit Catalogue(std::span<const Statement> statements);
    // The index points into the shapes.
    Catalogue(const Catalogue&) = delete;
    Catalogue& operator=(const Catalogue&) = delete;

    /// @throws EngineError Syntax when the text has no shape; its description quotes only the first words.
    Match look_up(std::string_view sql) const;
    /// What look_up finds for the statement's text with these values in its holes, without making that text.
    /// The match points to the values.
    /// @return nothing when a value would have to be read as part of the text: then only look_up can tell.
    std::optional<Match> match(
        const Statement& statement, std::initializer_list<std::string_view> values) const;
    std::size_t size() const { return shapes_.size(); }

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view key) const { return std::hash<std::string_view>{}(key); }
    };
    /// Normalised tokens, literals as "?", to the shapes that have them: those differ in their fixed
    /// literals.
    using Index = std::unordered_map<std::string, std::vector<const Shape*>, Hash, std::equal_to<>>;

    std::vector<Shape> shapes_;
    Index index_;
    mutable std::unordered_map<const char*, const Shape*> by_text_; // of statements that were matched
};

} // namespace qz::platform
