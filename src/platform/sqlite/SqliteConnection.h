// The connection to the embedded database.
#pragma once

#include "platform/Machine.h"
#include "platform/database/Connection.h"
#include "platform/database/LogBacklog.h"
#include "platform/sqlite/SqliteActivity.h"
#include "platform/sqlite/SqliteCheckpoints.h"
#include "platform/sqlite/SqliteDatabase.h"
#include "platform/sqlite/SqliteEdits.h"
#include "platform/sqlite/SqliteMessageNumbers.h"
#include "platform/sqlite/SqlitePrepared.h"
#include "platform/sqlite/SqliteTables.h"
#include "platform/sqlite/SqliteWaitingRows.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qz::platform {

/// Reads run outside a transaction as long as the turn has not written anything. New rows of some tables wait
/// until a statement about their table runs, or until the commit (see SqliteWaitingRows). Rows of the log
/// survive a rollback, and wait with the times of their events while the file is locked or fails.
class SqliteConnection final : public Connection {
public:
    SqliteConnection(const ConnectionOptions& options, const Clock& clock);

    void Open(const std::string& connection_string) override;
    void Close() override;
    ConnectionState State() const override;
    void run(const Statement& statement, Parameters values) override;
    ResultSet query(const Statement& statement, Parameters values) override;
    bool finds(const Statement& statement, Parameters values) override;
    void visit(const Statement& statement, Parameters values, const RowVisitor& visitor) override;
    std::int64_t insert_row(const Table& table, const RowChange& row) override;
    std::int64_t add_row(const Table& table, const RowChange& row) override;
    void update_row(const Table& table, std::int64_t key, const RowChange& row) override;
    void delete_row(const Table& table, std::int64_t key) override;
    void commit() override;
    void rollback() override;
    std::uint64_t change_mark(const Table& table) override;
    std::uint64_t own_changes(const Table& table) const override;
    std::string description() const override;
    std::vector<std::string> take_notices() override { return std::exchange(notices_, {}); }
    Maintenance& maintenance() override;

private:
    /// What lives from Open to Close. Statements stand behind the database, so they go first.
    struct Session {
        Session(const std::filesystem::path& file, DatabaseAccess access,
            const std::shared_ptr<StatementTrace>& trace);

        SqliteDatabase database;
        SqliteTables tables{database};
        std::unordered_map<const Statement*, SqlitePrepared> prepared;
        SqliteEdits edits{database};
        std::unique_ptr<SqliteStatement> begin;
        std::unique_ptr<SqliteStatement> commit;
        std::unique_ptr<SqliteStatement> data_version;
        std::unique_ptr<SqliteStatement> schema_version;
        std::unique_ptr<SqliteWaitingRows> waiting;
        std::unique_ptr<SqliteActivity> activity;
        std::unique_ptr<SqliteMessageNumbers> numbers;
        std::unique_ptr<SqliteCheckpoints> checkpoints;
        bool in_turn = false;    // a transaction was begun and not committed yet
        bool changed = false;    // something succeeded in it
        bool turn_lost = false;  // some of what had succeeded is lost
        bool locked_out = false; // the last turn waited for a lock in vain
        std::int64_t last_version = 0;
        std::int64_t last_schema = 0;
    };

    Session& session();
    /// The prepared statement; what it is about to read is written before.
    SqliteStatement& prepare(Session& open, const Statement& statement, Parameters values);
    static bool waits(const Table& table, const RowChange& row);
    /// Lets an edit of a stored row wait, or makes way for one that cannot.
    template <typename Edit> bool edit_waiting(Session& open, const Table& table, Edit edit);
    /// Writes what waits for these tables: somebody is about to read it.
    void write_waiting(Session& open, SqliteWaitingRows::Tables tables);
    void write_last(Session& open);
    std::uint64_t& changes_of(const Table& table);
    void notice_others(Session& open);
    void begin_turn(Session& open);
    static void begin(Session& open);
    /// Begins the turn for a row of the log, or keeps the row.
    /// @return false when it is kept.
    bool begin_turn_to_log(Session& open, const RowChange& row);
    /// Before the rows that wait of a turn are forgotten.
    void keep_log(Session& open);
    bool write_backlog(Session& open);
    void insert_backlog(Session& open, const std::vector<LogRow>& rows);
    void note_log_failure(const EngineError& failure);
    void tell_log_written();
    /// Runs a statement that changes a table, in the turn's transaction.
    void run_change(Session& open, SqliteStatement& statement, const Table* table);
    /// @return whether there is a row.
    bool next_row(Session& open, SqliteStatement& statement);
    /// Runs an edit of one row.
    /// @return the number of rows that it changed.
    std::int64_t run_edit(EditKind kind, const Table& table, const RowChange& row,
        std::optional<std::int64_t> key = std::nullopt);
    [[noreturn]] void fail(Session& open, const EngineError& failure);

    std::filesystem::path file_;
    Durability durability_;
    DatabaseAccess access_;
    const Clock& clock_;
    StatementOverrides overrides_;
    std::shared_ptr<StatementTrace> trace_;
    std::unique_ptr<Session> session_;
    /// Changes that cannot be told apart by table: by other connections, by lost turns, by opening.
    std::uint64_t common_changes_;
    std::vector<std::pair<std::string, std::uint64_t>> own_changes_; // by table, of which there are few
    LogBacklog backlog_;
    std::chrono::steady_clock::time_point backlog_due_; // when it is tried to be written
    bool log_failure_told_ = false;
    std::vector<std::string> notices_;
};

} // namespace qz::platform
