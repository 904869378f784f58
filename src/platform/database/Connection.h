// A connection to a database. Providers implement it; store::Database alone uses it.
#pragma once

#include "base/EngineError.h"
#include "platform/database/Statement.h"
#include "platform/database/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qz::platform {

enum class ConnectionState { Closed = 0, Open = 1 };

/// Everything that a query gave: fetched whole, on the client's side.
struct ResultSet {
    std::vector<std::string> columns;
    std::vector<std::vector<Value>> rows;
};

/// @param row  a value for each of the columns.
using RowVisitor = std::function<void(const std::vector<std::string>& columns, std::vector<Value>& row)>;

/// Column names and values for one row.
struct RowChange {
    std::vector<std::string> columns;
    std::vector<Value> values;
};

/// What holds the tables, for those who make them or move them elsewhere. Operations throw EngineError.
class Maintenance {
public:
    virtual ~Maintenance() = default;

    /// Version of the tables; 0 when there are none.
    virtual int schema_version() = 0;
    /// The version that this program makes and understands.
    virtual int current_schema_version() const = 0;
    /// Makes what is missing of the tables, and leaves what is there.
    virtual void make_schema() = 0;

    virtual std::uint64_t count_rows(const Table& table) = 0;
    /// Up to `count` rows with keys above `after`, all columns, in the order of the keys.
    virtual ResultSet read_rows(const Table& table, std::int64_t after, std::size_t count) = 0;
    /// Inserts rows with their keys, all or none. Later rows get keys above all of them.
    virtual void write_rows(const Table& table, const ResultSet& rows) = 0;
    virtual void delete_rows(const Table& table) = 0;

    /// From here to commit, rows are written and deleted together or not at all. When one of these operations
    /// fails, nothing of them is kept. Tables must not be made in between.
    /// @return false when the database takes nothing back: every operation then lasts at once.
    virtual bool begin() = 0;
    /// From here to roll_back, rows are read as they are now, whatever others write meanwhile. Nothing is to
    /// be written in between.
    virtual void begin_reading() = 0;
    virtual void commit() = 0;
    /// Takes back what followed begin, or ends the reading. Never fails: with a broken connection it has been
    /// taken back.
    virtual void roll_back() noexcept = 0;

    /// Two connections may reach one database by different addresses. What one of them marks, the other then
    /// sees: has_mark answers to a mark that was set by any connection to the same tables, and to no other.
    /// @return the mark; clear_mark removes it again.
    virtual std::string set_mark() = 0;
    virtual bool has_mark(const std::string& mark) = 0;
    virtual void clear_mark(const std::string& mark) noexcept = 0;
};

/// All statements between two commits share one transaction. A failing statement fails alone. Every operation
/// throws EngineError with a number of DatabaseError.
class Connection {
public:
    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    virtual ~Connection() = default; // closes; what was not committed by then is lost

    /// @param connection_string  as the engine builds it; a provider that needs none ignores it.
    virtual void Open(const std::string& connection_string) = 0;
    /// Commits what is pending and closes. Closing a closed connection is an error (3704).
    virtual void Close() = 0;
    virtual ConnectionState State() const = 0;

    /// Runs a statement without a result.
    virtual void run(const Statement& statement, Parameters values) = 0;
    /// Runs a query and fetches all its rows.
    virtual ResultSet query(const Statement& statement, Parameters values) = 0;
    /// Whether a query gives a row.
    virtual bool finds(const Statement& statement, Parameters values)
    {
        return !query(statement, values).rows.empty();
    }
    /// Runs a query and shows its rows one after the other, so that many of them are never held at once. The
    /// visitor may keep the values, and must not use the connection; what it throws ends the query.
    virtual void visit(const Statement& statement, Parameters values, const RowVisitor& visitor)
    {
        auto result = query(statement, values);
        for (auto& row : result.rows) {
            visitor(result.columns, row);
        }
    }

    // Single rows. Table and column names come from the statements and the schema, never from outside.
    /// @return the key that the database gave the new row.
    virtual std::int64_t insert_row(const Table& table, const RowChange& row) = 0;
    /// For callers that can do without the key. The row may reach the database as late as with the next
    /// statement about its table, or with the commit, which then reports what the database refuses.
    /// @return the new row's key; 0 when the database has not given it yet.
    virtual std::int64_t add_row(const Table& table, const RowChange& row) { return insert_row(table, row); }
    /// @throws EngineError RowGone when there is no such row any more, if that is noticed while rows wait.
    virtual void update_row(const Table& table, std::int64_t key, const RowChange& row) = 0;
    virtual void delete_row(const Table& table, std::int64_t key) = 0;

    /// Commits the transaction, if one was begun. On a failure its changes are lost. A connection that lost
    /// its link opens again here once that is possible; Close ends that. Does nothing on any other closed
    /// connection.
    virtual void commit() = 0;
    /// Takes back what was changed since the last commit. Never fails: a connection that broke has taken it
    /// back.
    virtual void rollback() = 0;

    /// A number that stays the same as long as nobody, in this process or another, has changed the table.
    /// Costs microseconds and reads no row. It may also change without a change of this table.
    virtual std::uint64_t change_mark(const Table& table) = 0;
    /// How much of the mark this connection itself has made up by changing the table, at most: as long as the
    /// rest of the mark is the same, nobody else has changed the table, and nothing of this connection was
    /// taken back.
    virtual std::uint64_t own_changes(const Table& /*table*/) const { return 0; }

    /// What is connected, for people: "SQLite 3.40.1, /var/lib/velto/VELTO.db".
    virtual std::string description() const = 0;
    /// What happened to the connection since the last call and people should be told, in sentences.
    virtual std::vector<std::string> take_notices() { return {}; }
    virtual Maintenance& maintenance() { throw runtime_error(RuntimeError::NotAvailable); }
};

} // namespace qz::platform
