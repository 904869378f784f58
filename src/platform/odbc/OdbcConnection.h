// The connection to a database server through ODBC.
#pragma once

#include "platform/Machine.h"
#include "platform/SystemClock.h"
#include "platform/database/Connection.h"
#include "platform/database/LogBacklog.h"
#include "platform/odbc/OdbcLink.h"
#include "platform/odbc/OdbcReconnector.h"
#include "platform/odbc/OdbcTables.h"
#include "platform/odbc/OdbcTurn.h"
#include "platform/odbc/WaitingRows.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qz::platform {

/// What counts at a server is the number of its answers that are waited for. Keys are reserved many at a
/// time; what happens to the rows that every message writes waits for the end of the turn and goes together;
/// what a query gave is kept as long as the change counter of its table stands still.
///
/// When the link is lost, the connection is closed until commit has found the way back. The transaction in
/// which that happens is lost; rows added to the log, also those of the time between, wait with the times of
/// their events.
class OdbcConnection final : public Connection {
public:
    OdbcConnection(const ConnectionOptions& options, const OdbcTimes& times);

    void Open(const std::string& connection_string) override;
    void Close() override;
    ConnectionState State() const override;
    void run(const Statement& statement, Parameters values) override;
    ResultSet query(const Statement& statement, Parameters values) override;
    std::int64_t insert_row(const Table& table, const RowChange& row) override;
    /// A row of the log without a time gets it from the server, and is taken while the link is lost as well.
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
    struct Session {
        explicit Session(std::unique_ptr<OdbcLink> opened, const OdbcTimes& times)
            : link(std::move(opened)), turn(*link, times), tables(*link)
        {
        }
        std::unique_ptr<OdbcLink> link;
        OdbcTurn turn;
        OdbcTables tables;
        /// By table.
        std::map<std::string_view, std::deque<std::int64_t>> keys;
        /// Change counters by table, as long as they are fresh.
        std::map<std::string, std::uint64_t, std::less<>> marks;
        std::optional<std::chrono::steady_clock::time_point> marks_read;
        std::chrono::steady_clock::time_point zone_checked = std::chrono::steady_clock::now();
    };
    /// Rows of the log that go to the server together.
    struct LogWrite {
        Step step;
        /// Of the events, one for each row of the step; none when the rows bring their times along.
        std::vector<DateTime> times = {};

        /// The rows as they wait until they can be written.
        std::vector<LogRow> rows() &&;
        std::vector<LogWrite> single_rows() &&;
    };
    struct KeptKey {
        const Statement* statement;
        std::vector<Value> values;
        bool operator==(const KeptKey&) const = default;
    };
    struct KeptHash {
        std::size_t operator()(const KeptKey& key) const;
    };
    struct Kept {
        std::uint64_t mark = 0;
        ResultSet result;
    };

    Session& session();
    void use(std::unique_ptr<OdbcLink> link);
    void upgrade();
    Step step_of(const Statement& statement, Parameters values) const;
    /// Runs work on the open session, and turns its failures into those of the interface.
    template <typename Work> auto with_session(Work work);
    void lose(const LinkLost& lost);
    void find_way_back();
    std::string reason_against(const ServerFacts& facts) const;
    static bool has_tables(const ServerFacts& facts);

    /// True for the tables whose rows nobody refuses, and which have no change counter.
    static bool waits(const Table& table);
    void log(LogRow row);
    /// A key for a row that waits; none where the server gives them with the rows only.
    static std::optional<std::int64_t> take_key(Session& open, const Table& table);
    void add_waiting(Session& open, const Table& table, std::int64_t key, const RowChange& row);
    ResultSet select(Session& open, const Statement& statement, Parameters values);
    std::optional<std::uint64_t> counted_mark(Session& open, const Table& table) const;
    ResultSet select_kept(Session& open, const Statement& statement, Parameters values);
    bool must_flush_for(const Statement& statement) const;
    void flush(Session& open);
    void flush_and_commit(Session& open);
    /// What is to be written to the log: what waits from before, and the rows of this turn.
    std::vector<LogWrite> take_log(Session& open);
    void put_back(std::vector<LogWrite> writes);
    void write_log_slowly(Session& open, std::vector<LogWrite> writes);
    void tell_lost_log_rows();
    void note_log_failure(const OdbcFailure& failure);
    void forget_turn();
    void notice_repeated_turn(Session& open);
    /// @param rows  that a statement of this connection has changed.
    void count_own_change(Session& open, const Table& table, std::int64_t rows);

    OdbcTimes times_;
    DatabaseOverrides overrides_;
    std::shared_ptr<StatementTrace> trace_;
    std::string connection_string_;
    const ServerDatabase* server_ = nullptr; // that was connected last; null before the first link
    Step log_insert_;                        // without rows
    std::unique_ptr<Session> session_;
    OdbcReconnector reconnector_;
    WaitingRows waiting_;       // of this turn
    std::vector<LogWrite> log_; // of this turn
    LogBacklog backlog_;        // rows of the log that could not be written
    SystemClock clock_;
    bool waiting_told_ = false;               // that log rows wait because of a failure
    std::optional<EngineError> turn_failure_; // a write that waited failed: the turn will not be stored
    std::unordered_map<KeptKey, Kept, KeptHash> kept_;
    std::uint64_t common_changes_;
    std::uint64_t uncounted_looks_ = 0; // at the marks of tables whose changes nobody counts
    struct LostSchema {
        int version = 0;
        bool has_tables = false;
    };
    std::optional<LostSchema> lost_schema_;                 // of the session that was lost
    std::string refused_;                                   // why the database that answers is not used
    std::map<std::string_view, std::uint64_t> own_changes_; // by table
    std::vector<std::string> notices_;
};

} // namespace qz::platform
