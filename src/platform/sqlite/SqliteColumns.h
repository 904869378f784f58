// What columns the tables of the database have: names for edits come from outside the catalogue and are
// checked here.
#pragma once

#include "platform/database/Statement.h"

#include <set>
#include <string>
#include <string_view>

namespace qz::platform {

class SqliteDatabase;

class SqliteColumns {
public:
    explicit SqliteColumns(SqliteDatabase& database);

    /// @throws EngineError MissingTable or Syntax when there is no such column.
    void require(const Table& table, std::string_view column) const;
    /// The columns of a table that take the time at which their row is added, in lower case.
    std::set<std::string> stamped(const Table& table) const;

private:
    std::set<std::string> all_;     // "table.column" in lower case
    std::set<std::string> stamped_; // of these, those with the time as their default
};

/// A name for the text of an edit. Different names always give different texts.
/// @throws EngineError Syntax for a name that cannot be one.
std::string bracketed(std::string_view name);

} // namespace qz::platform
