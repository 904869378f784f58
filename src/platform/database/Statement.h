// SQL statements: each stands once, as a literal that pastes into a database's shell.
#pragma once

#include "platform/database/Value.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qz::platform {

/// A table and its counter key, which the database assigns.
struct Table {
    std::string_view name;
    std::string_view key;
};

/// A statement of the engine: an object that outlives every connection, whose address stands for it.
struct Statement {
    /// The text as hosts and reports know it: '{}' stands for a text, a bare {} for a number or a whole
    /// literal.
    std::string_view stated;
    /// What runs where no override says otherwise: lower case names, those that are reserved words in double
    /// quotes, a ? for each value. Empty when every database has an override.
    std::string_view sql = {};
    /// The table that it changes, or whose rows it reads.
    const Table* table = nullptr;
    /// Another table that it reads.
    const Table* joined = nullptr;
    /// Its caller knows of the rows that were added in this turn: they need not be written before it runs.
    bool ignores_pending_writes = false;
    /// A query whose condition and order read only columns that keep their values once a row is added: of the
    /// rows that were changed in this turn, only those that it gives need to be written before it runs.
    bool finds_by_fixed_columns = false;
};

/// The values of a statement, in the order of its question marks.
using Parameters = std::span<const Value>;

/// What one database runs instead of a statement's own text.
struct StatementOverride {
    const Statement* statement;
    std::string_view sql;
    /// Of the embedded database, which finds messages by number, and users' activity, in tables that follow
    /// later: the parameter that is the message's number, counted from 1.
    std::size_t message_number = 0;
    bool reads_activity = false;
};
using StatementOverrides = std::span<const StatementOverride>;

/// Those of all databases.
struct DatabaseOverrides {
    StatementOverrides sqlite;
    StatementOverrides postgresql;
    StatementOverrides mariadb;
    StatementOverrides sql_server;
};

/// What a database runs for a statement.
inline StatementOverride override_of(const Statement& statement, StatementOverrides overrides)
{
    for (const auto& each : overrides) {
        if (each.statement == &statement) {
            return each;
        }
    }
    return {&statement, statement.sql};
}

} // namespace qz::platform
