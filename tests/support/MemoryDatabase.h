// The real database with its real tables, in memory, for the tests of every room above it.
#pragma once

#include "base/Clock.h"
#include "platform/database/Connection.h"
#include "store/Statements.h"
#include "support/DatabaseServer.h"

#include <deque>
#include <initializer_list>
#include <memory>
#include <string>
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

/// The engine's statements, and one more for each table that reads it in the order of its keys.
class TestStatements {
public:
    TestStatements()
    {
        const auto own = store::all_statements();
        statements_.assign(own.begin(), own.end());
        for (const auto& table : all_tables()) {
            texts_.push_back(reading(table));
            statements_.push_back({texts_.back(), &table});
        }
    }
    static std::string reading(const platform::Table& table)
    {
        return "SELECT * FROM " + std::string(table.name) + " ORDER BY " + std::string(table.key);
    }
    std::span<const platform::Statement> all() const { return statements_; }

private:
    std::deque<std::string> texts_; // the statements point into them
    std::vector<platform::Statement> statements_;
};

/// All rows of a table in the order of their keys; the connection must know TestStatements.
inline platform::ResultSet rows_of(platform::Connection& connection, const platform::Table& table)
{
    return connection.query(TestStatements::reading(table));
}

/// Adds a row with any columns, also those that the engine leaves to the database.
/// @return its key.
inline std::int64_t add_row(platform::Connection& connection, const platform::Table& table,
    std::initializer_list<std::pair<const char*, platform::Value>> fields)
{
    platform::RowChange row;
    for (const auto& [column, value] : fields) {
        row.columns.emplace_back(column);
        row.values.push_back(value);
    }
    return connection.insert_row(table, row);
}

/// Open from the start, empty, gone with the object.
class MemoryDatabase {
public:
    /// @param clock  gives the dates that the database sets itself, and what it calls today.
    explicit MemoryDatabase(const Clock& clock)
    {
        platform::ConnectionOptions options;
        options.database_file = ":memory:";
        options.statements = statements_.all();
        connection_ = make_test_connection(options, clock);
        connection_->Open("");
    }
    platform::Connection& connection() { return *connection_; }
    platform::ResultSet rows(const platform::Table& table) { return rows_of(*connection_, table); }
    std::int64_t add(
        const platform::Table& table, std::initializer_list<std::pair<const char*, platform::Value>> fields)
    {
        return add_row(*connection_, table, fields);
    }

private:
    TestStatements statements_;
    std::unique_ptr<platform::Connection> connection_;
};

} // namespace qz::test
