#include "platform/sqlite/SqliteColumns.h"

#include "base/EngineError.h"
#include "base/Text.h"
#include "platform/sqlite/SqliteDatabase.h"

#include <sqlite3.h>

namespace qz::platform {

namespace {

EngineError no_such_column(std::string_view table, std::string_view column)
{
    return database_error(
        DatabaseError::Syntax, "no such column: " + std::string(table) + "." + std::string(column));
}

} // namespace

SqliteColumns::SqliteColumns(SqliteDatabase& database)
{
    SqliteStatement statement(database,
        "SELECT lower(t.name || '.' || c.name), c.dflt_value LIKE 'datetime(%' "
        "FROM sqlite_master AS t, pragma_table_info(t.name) AS c WHERE t.type = 'table'");
    int code = statement.step();
    for (; code == SQLITE_ROW; code = statement.step()) {
        const auto name = statement.column(0).text();
        all_.insert(name);
        if (statement.column(1).boolean()) {
            stamped_.insert(name);
        }
    }
    if (code != SQLITE_DONE) {
        throw database.error(code);
    }
}

void SqliteColumns::require(const Table& table, std::string_view column) const
{
    const auto prefix = lower(table.name) + ".";
    const auto in_table = all_.lower_bound(prefix);
    if (in_table == all_.end() || !in_table->starts_with(prefix)) {
        throw database_error(DatabaseError::MissingTable, "no such table: " + std::string(table.name));
    }
    if (!all_.contains(prefix + lower(column))) {
        throw no_such_column(table.name, column);
    }
}

std::set<std::string> SqliteColumns::stamped(const Table& table) const
{
    const auto prefix = lower(table.name) + ".";
    std::set<std::string> columns;
    for (auto each = stamped_.lower_bound(prefix); each != stamped_.end() && each->starts_with(prefix);
         ++each) {
        columns.insert(each->substr(prefix.size()));
    }
    return columns;
}

std::string bracketed(std::string_view name)
{
    if (name.find(']') != std::string_view::npos) {
        throw no_such_column("", name);
    }
    return "[" + std::string(name) + "]";
}

} // namespace qz::platform
