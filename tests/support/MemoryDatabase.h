// The real database with its real tables, in memory, for the tests of every module above it.
#pragma once

#include "base/Clock.h"
#include "base/Text.h"
#include "platform/database/Connection.h"
#include "store/Database.h"
#include "store/Overrides.h"
#include "support/DatabaseServer.h"

#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qz::test {

inline const std::vector<platform::Table>& all_tables()
{
    using namespace store::tables;
    static const std::vector<platform::Table> tables{
        kUsers, kBuddies, kRooms, kMessages, kLog, kCommand, kAutoReply, kLastLogOn};
    return tables;
}

/// Reads a table in the order of its keys.
/// @param table  lives as long as the program.
inline const platform::Statement& reading(const platform::Table& table)
{
    struct Reading {
        std::string sql;
        platform::Statement statement;
    };
    static std::map<std::string_view, Reading> readings; // prepared statements are known by their addresses
    auto& [sql, statement] = readings[table.name];
    if (sql.empty()) {
        sql = "SELECT * FROM " + std::string(table.name) + " ORDER BY " + lower(table.key);
        statement = {.stated = sql, .sql = sql, .table = &table};
    }
    return statement;
}

/// All rows of a table in the order of their keys.
inline platform::ResultSet rows_of(platform::Connection& connection, const platform::Table& table)
{
    return connection.query(reading(table), {});
}
inline store::Rows rows_of(store::Database& database, const platform::Table& table)
{
    return database.query(reading(table));
}

/// One row, with any columns, also those that the engine leaves to the database.
using Fields = std::initializer_list<std::pair<const char*, platform::Value>>;
inline platform::RowChange row_with(Fields fields)
{
    platform::RowChange row;
    for (const auto& [column, value] : fields) {
        row.columns.emplace_back(column);
        row.values.push_back(value);
    }
    return row;
}

/// @return the key of the new row.
inline std::int64_t add_row(platform::Connection& connection, const platform::Table& table, Fields fields)
{
    return connection.insert_row(table, row_with(fields));
}
inline std::int64_t add_row(store::Database& database, const platform::Table& table, Fields fields)
{
    return database.insert(table, row_with(fields));
}

/// Open from the start, empty, gone with the object.
class MemoryDatabase {
public:
    /// @param clock  gives the dates that the database sets itself, and what it calls today.
    explicit MemoryDatabase(const Clock& clock)
    {
        platform::ConnectionOptions options;
        options.database_file = ":memory:";
        options.overrides = store::all_overrides();
        connection_ = make_test_connection(options, clock);
        connection_->Open("");
    }
    platform::Connection& connection() { return *connection_; }
    platform::ResultSet rows(const platform::Table& table) { return rows_of(*connection_, table); }
    std::int64_t add(const platform::Table& table, Fields fields)
    {
        return add_row(*connection_, table, fields);
    }

private:
    std::unique_ptr<platform::Connection> connection_;
};

} // namespace qz::test
