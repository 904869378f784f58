// How the engine's SQL texts are written down, and how a finished text is found again by its shape.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace qz::platform {

/// A table and its counter key, which the database assigns.
struct Table {
    std::string_view name;
    std::string_view key;
};

/// One SQL text of the engine with its holes: '{}' takes a text as it stands, a bare {} takes a number or a
/// whole literal. The holes are the only places where a value can stand.
struct Statement {
    std::string_view text;
    /// The table that the statement changes, or whose rows a recordset on it may edit; none for joins and
    /// counts.
    const Table* table = nullptr;
    /// Another text with the same holes in the same order and the same result, which databases run at a cost
    /// that does not explode with the rows. Empty when the text itself is good enough.
    std::string_view run_as = {};
    /// Whoever runs it knows of the rows that were added in this turn: they need not be there yet.
    bool of_stored_rows = false;
    /// Like run_as, and instead of it, for the embedded database, which keeps tables of its own for some
    /// questions.
    std::string_view run_embedded_as = {};
};

/// Joins a text as the system always did: the values stand between the pieces exactly as given.
/// There must be as many values as holes.
std::string fill(const Statement& statement, std::initializer_list<std::string_view> values);

} // namespace qz::platform
