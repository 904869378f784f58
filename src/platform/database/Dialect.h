// Turns the engine's statements, which mix two SQL dialects, into the SQL of one database with parameters.
#pragma once

#include "platform/database/Statement.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qz::platform {

/// A function of the engine's texts and what it is called in a dialect.
struct FunctionName {
    std::string_view name; // in lower case
    std::string_view translated;
};

/// How one database wants to be spoken to. A row limit (TOP) becomes LIMIT, and the columns of an UPDATE lose
/// their qualifier.
struct Dialect {
    std::string_view name_open; // around a name that stands in brackets
    std::string_view name_close;
    std::string_view joins_texts; // the operator for "+"
    std::span<const FunctionName> functions;
};

/// The embedded database. The functions that it does not have are registered by the provider.
extern const Dialect kSqliteDialect;

struct Translation {
    std::string sql; // a "?" for each parameter
    /// For each parameter the number of the hole that it takes its value from.
    std::vector<std::size_t> holes;
    /// True when the last column is the table's key, which the text itself does not ask for.
    bool hidden_key = false;
};

/// @param statement  from the catalogue. When it selects rows of its table, the key is always among the
/// columns.
Translation translate(const Statement& statement, const Dialect& dialect);

} // namespace qz::platform
