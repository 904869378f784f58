// The statements that add, change and remove rows by their keys, each prepared at its first use.
#pragma once

#include "platform/database/Statement.h"
#include "platform/sqlite/SqliteDatabase.h"

#include <memory>
#include <string>
#include <vector>

namespace qz::platform {

enum class EditKind { Insert, Update, Delete };

class SqliteEdits {
public:
    /// @param database  must outlive the object.
    explicit SqliteEdits(SqliteDatabase& database) : database_(database) { }

    /// Its parameters are the columns' values, and then the first and the last key of the rows to change or
    /// remove; an Insert has no keys.
    /// @throws EngineError when the table or a column does not exist: names are checked at the first use.
    SqliteStatement& statement(EditKind kind, const Table& table, const std::vector<std::string>& columns);

private:
    struct Known {
        EditKind kind;
        std::string table;
        std::vector<std::string> columns;
        std::unique_ptr<SqliteStatement> statement;
    };

    SqliteDatabase& database_;
    std::vector<Known> known_; // a dozen
};

} // namespace qz::platform
