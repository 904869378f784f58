// Turns the engine's statements, which mix two SQL dialects, into the SQL of one database with parameters.
#pragma once

#include "platform/database/Statement.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qz::platform {

/// A function of the engine's texts and what a dialect writes for a call of it.
struct FunctionRule {
    std::string_view name; // in lower case
    std::string_view call; // $1 to $9 stand for the arguments
};

enum class NameCase {
    AsWritten,
    Lower, // the database tells names apart by their case, and has them in lower case
};
enum class RowLimit {
    Top,   // TOP (n) in front of the columns
    Limit, // LIMIT n at the end
};

/// How one database wants to be spoken to. The columns of an UPDATE lose their qualifier everywhere.
struct Dialect {
    std::string_view name_open; // around a name that stands in brackets
    std::string_view name_close;
    NameCase name_case;
    std::string_view joins_texts; // the operator for "+"
    RowLimit row_limit;
    std::span<const FunctionRule> functions;
};

/// The embedded database. The functions that it does not have are registered by the provider.
extern const Dialect kSqliteDialect;
extern const Dialect kPostgreSqlDialect;
extern const Dialect kMariaDbDialect;
extern const Dialect kSqlServerDialect;

/// A name as the dialect writes one that may be a word of its own language.
std::string quoted_name(std::string_view name, const Dialect& dialect);

struct Translation {
    std::string sql; // a "?" for each parameter
    /// For each parameter the number of the hole that it takes its value from.
    std::vector<std::size_t> holes;
    /// True when the last column is the table's key, which the text itself does not ask for.
    bool hidden_key = false;
};

/// A dialect may leave out holes, or take one several times.
/// @param statement  from the catalogue. When it selects rows of its table, the key is always among the
/// columns.
Translation translate(const Statement& statement, const Dialect& dialect);

} // namespace qz::platform
