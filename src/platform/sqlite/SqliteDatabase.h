// The C library of the embedded database behind two owners: an open file and a prepared statement.
#pragma once

#include "base/EngineError.h"
#include "platform/database/StatementTrace.h"
#include "platform/database/Value.h"
#include "platform/sqlite/SqliteTracedRun.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace qz::platform {

/// An open database file. Closing gives up what is not committed.
///
/// Only the library opens database files. Locks on a file belong to the whole process and end with the first
/// descriptor of the file that it closes: with a descriptor of its own, however short, this process would
/// give up its locks, and the next program that closes the database would delete its log as the last one.
class SqliteDatabase {
public:
    enum class IfMissing : std::uint8_t { Create, Fail };
    enum class Access : std::uint8_t {
        ReadWrite,
        // The file stays as it is, also when it is closed as the last one, and no other file is left beside
        // it.
        Read,
    };

    /// Opens the file.
    /// @param file  ":memory:" is a database that lives as long as this object.
    /// @param if_missing  whether the file is made (mode 0640) when there is none.
    /// @throws EngineError when it cannot be used; what stands there is left as it is.
    explicit SqliteDatabase(const std::filesystem::path& file, IfMissing if_missing = IfMissing::Create,
        Access access = Access::ReadWrite);

    sqlite3* handle() const { return handle_.get(); }
    /// The file's full path, or ":memory:".
    const std::string& name() const { return name_; }
    bool is_in_memory() const { return name_ == ":memory:"; }

    /// From here on, statements that are prepared or run tell it; null: nobody.
    void set_trace(std::shared_ptr<StatementTrace> trace) { trace_ = std::move(trace); }
    StatementTrace* trace() const { return trace_.get(); }

    /// Runs one or more statements without values.
    void run(const std::string& sql);
    /// The first column of the first row of a statement without values.
    Value read(const std::string& sql);
    bool in_transaction() const;
    /// How long a statement waits for another program's lock.
    void wait_for_locks(std::chrono::milliseconds time);
    /// Number of rows that the last INSERT, UPDATE or DELETE changed.
    std::int64_t changed_rows() const;
    std::int64_t last_key() const;

    /// The failure of the last call, which returned `code`, for people: what is wrong with which file, and
    /// what to do.
    EngineError error(int code) const;

private:
    struct Closer {
        void operator()(sqlite3* handle) const;
    };
    void open(bool create, Access access);
    void require_database() const;

    std::string name_;
    std::shared_ptr<StatementTrace> trace_;
    std::unique_ptr<sqlite3, Closer> handle_;
};

/// A statement that is prepared once and run many times. Must not outlive its database.
class SqliteStatement {
public:
    /// How a trace shows a statement whose text repeats itself for many rows.
    struct Rows {
        std::string_view sql; // for one row
        std::size_t count = 1;
    };

    SqliteStatement(SqliteDatabase& database, std::string_view sql) : SqliteStatement(database, sql, {sql, 1})
    {
    }
    SqliteStatement(SqliteDatabase& database, std::string_view sql, const Rows& rows);

    /// Keeps its runs out of a trace.
    void hide() { traced_.reset(); }

    /// Parameters count from 1. What is bound must stay alive until the run is over.
    void bind(int parameter, const Value& value);
    void bind(int parameter, std::string_view text);
    /// Binds the first parameters.
    void bind(std::span<const Value> values);
    /// @return SQLITE_ROW, SQLITE_DONE or the code of a failure.
    int step();
    /// A whole run of a statement without a result.
    /// @throws EngineError like read().
    void run();
    /// A whole run of a statement with one row: its first column.
    Value read();
    /// Ends a run: locks and values are let go.
    void reset();

    std::size_t parameter_count() const;
    std::vector<std::string> columns() const;
    Value column(std::size_t position) const;
    /// All columns of the current row.
    std::vector<Value> row() const;

private:
    void bind_copy(int parameter, const std::string& text);
    int traced_step();
    void check(int code) const;

    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const;
    };
    SqliteDatabase& database_;
    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
    std::unique_ptr<SqliteTracedRun> traced_; // none when nobody traces
};

/// Ends a statement's run on every way out, so that it holds no lock and no value of its caller.
class SqliteRun {
public:
    explicit SqliteRun(SqliteStatement& statement) : statement_(statement) { }
    SqliteRun(const SqliteRun&) = delete;
    SqliteRun& operator=(const SqliteRun&) = delete;
    ~SqliteRun() { statement_.reset(); }

private:
    SqliteStatement& statement_;
};

} // namespace qz::platform
