#include "platform/sqlite/SqliteTables.h"

#include "platform/sqlite/SqliteDatabase.h"
#include "platform/sqlite/SqliteSchema.h"

#include <filesystem>
#include <sqlite3.h>
#include <string_view>
#include <system_error>

namespace qz::platform {

namespace {

std::string bracketed(std::string_view name)
{
    return "[" + std::string(name) + "]";
}

/// What a mark begins with: the name of the file follows.
constexpr std::string_view kFileMark = "file ";

/// Takes back what was begun unless it is committed; inside another transaction only together with that.
class Transaction {
public:
    explicit Transaction(SqliteDatabase& database) : database_(database), own_(!database.in_transaction())
    {
        if (own_) {
            database.run("BEGIN IMMEDIATE");
        }
    }
    ~Transaction()
    {
        if (!committed_ && database_.in_transaction()) {
            sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
        }
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit()
    {
        if (own_) {
            database_.run("COMMIT");
        }
        committed_ = true;
    }

private:
    SqliteDatabase& database_;
    bool own_;
    bool committed_ = false;
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
        result.rows.push_back(statement.row());
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
        statement.bind(row);
        statement.run();
    }
    transaction.commit();
}

void SqliteTables::delete_rows(const Table& table)
{
    Transaction transaction(database_);
    database_.run("DELETE FROM " + bracketed(table.name));
    transaction.commit();
}

bool SqliteTables::begin()
{
    database_.run("BEGIN IMMEDIATE");
    return true;
}

void SqliteTables::begin_reading()
{
    database_.run("BEGIN; SELECT 1 FROM sqlite_master"); // the first read is the moment
}

void SqliteTables::commit()
{
    database_.run("COMMIT");
}

void SqliteTables::roll_back() noexcept
{
    if (database_.in_transaction()) {
        sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

/// The file is its own mark.
std::string SqliteTables::set_mark()
{
    return std::string(kFileMark) + database_.name();
}

bool SqliteTables::has_mark(const std::string& mark)
{
    if (!mark.starts_with(kFileMark)) {
        return false;
    }
    std::error_code no_file; // ":memory:" is nobody else's
    return std::filesystem::equivalent(mark.substr(kFileMark.size()), database_.name(), no_file);
}

void SqliteTables::clear_mark(const std::string& /*mark*/) noexcept { }

} // namespace qz::platform
