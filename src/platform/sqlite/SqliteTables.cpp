#include "platform/sqlite/SqliteTables.h"

#include "platform/sqlite/SqliteDatabase.h"
#include "platform/sqlite/SqliteSchema.h"

#include <sqlite3.h>

namespace qz::platform {

namespace {

std::string bracketed(std::string_view name)
{
    return "[" + std::string(name) + "]";
}

/// Takes back what was begun unless it is committed.
class Transaction {
public:
    explicit Transaction(SqliteDatabase& database) : database_(database) { database.run("BEGIN IMMEDIATE"); }
    ~Transaction()
    {
        if (database_.in_transaction()) {
            sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
        }
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit() { database_.run("COMMIT"); }

private:
    SqliteDatabase& database_;
};

} // namespace

int SqliteTables::schema_version()
{
    return check_schema_version(database_);
}

int SqliteTables::current_schema_version() const
{
    return platform::current_schema_version();
}

void SqliteTables::make_schema()
{
    upgrade_schema(database_);
}

std::uint64_t SqliteTables::count_rows(const Table& table)
{
    return static_cast<std::uint64_t>(
        database_.read("SELECT COUNT(*) FROM " + bracketed(table.name)).number());
}

ResultSet SqliteTables::read_rows(const Table& table, std::int64_t after, std::size_t count)
{
    const auto key = bracketed(table.key);
    SqliteStatement statement(database_,
        "SELECT * FROM " + bracketed(table.name) + " WHERE " + key + " > ? ORDER BY " + key + " LIMIT "
            + std::to_string(count));
    statement.bind(1, Value(after));
    ResultSet result;
    result.columns = statement.columns();
    int code = statement.step();
    for (; code == SQLITE_ROW; code = statement.step()) {
        auto& row = result.rows.emplace_back();
        for (std::size_t i = 0; i < result.columns.size(); ++i) {
            row.push_back(statement.column(i));
        }
    }
    if (code != SQLITE_DONE) {
        throw database_.error(code);
    }
    return result;
}

void SqliteTables::write_rows(const Table& table, const ResultSet& rows)
{
    std::string names;
    std::string holes;
    for (const auto& column : rows.columns) {
        names += (names.empty() ? "" : ", ") + bracketed(column);
        holes += holes.empty() ? "?" : ", ?";
    }
    Transaction transaction(database_);
    SqliteStatement statement(
        database_, "INSERT INTO " + bracketed(table.name) + " (" + names + ") VALUES (" + holes + ")");
    for (const auto& row : rows.rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            statement.bind(static_cast<int>(i) + 1, row[i]);
        }
        const int code = statement.step();
        if (code != SQLITE_DONE) {
            throw database_.error(code);
        }
        statement.reset();
    }
    transaction.commit();
}

void SqliteTables::delete_rows(const Table& table)
{
    database_.run("DELETE FROM " + bracketed(table.name));
}

} // namespace qz::platform
