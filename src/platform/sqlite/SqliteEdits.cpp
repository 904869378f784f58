#include "platform/sqlite/SqliteEdits.h"

#include "platform/sqlite/SqliteColumns.h"

#include <algorithm>

namespace qz::platform {

namespace {

std::string text_of(EditKind kind, const Table& table, const std::vector<std::string>& columns)
{
    const auto name = bracketed(table.name);
    const auto where = " WHERE " + bracketed(table.key) + " BETWEEN ? AND ?";
    if (kind == EditKind::Delete) {
        return "DELETE FROM " + name + where;
    }
    if (kind == EditKind::Insert && columns.empty()) {
        return "INSERT INTO " + name + " DEFAULT VALUES";
    }
    std::string names;
    std::string values;
    std::string settings;
    for (const auto& column : columns) {
        const std::string comma = names.empty() ? "" : ", ";
        names += comma + bracketed(column);
        values += comma + "?";
        settings += comma + bracketed(column) + " = ?";
    }
    return kind == EditKind::Insert ? "INSERT INTO " + name + " (" + names + ") VALUES (" + values + ")"
                                    : "UPDATE " + name + " SET " + settings + where;
}

} // namespace

SqliteStatement& SqliteEdits::statement(
    EditKind kind, const Table& table, const std::vector<std::string>& columns)
{
    const auto same = std::find_if(known_.begin(), known_.end(), [&](const Known& each) {
        return each.kind == kind && each.table == table.name && each.columns == columns;
    });
    if (same != known_.end()) {
        return *same->statement;
    }
    const SqliteColumns existing(database_);
    existing.require(table, table.key);
    for (const auto& column : columns) {
        existing.require(table, column);
    }
    auto statement = std::make_unique<SqliteStatement>(database_, text_of(kind, table, columns));
    return *known_.emplace_back(Known{kind, std::string(table.name), columns, std::move(statement)})
                .statement;
}

} // namespace qz::platform
