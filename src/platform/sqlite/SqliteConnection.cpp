#include "platform/sqlite/SqliteConnection.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "platform/sqlite/SqliteFunctions.h"
#include "platform/sqlite/SqliteProvider.h"
#include "platform/sqlite/SqliteSchema.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <utility>

#include <sqlite3.h>

namespace qz::platform {

namespace {

using namespace std::chrono_literals;
constexpr auto kLockPatience = 2s;

/// Marks of different connections never meet: a snapshot made through one is not taken for current by the
/// connection that follows it.
std::uint64_t first_mark()
{
    static std::atomic<std::uint64_t> connections{0};
    return ++connections << 40U;
}

EngineError row_gone()
{
    return database_error(DatabaseError::RowGone,
        "Row cannot be located for updating. Some values may have been changed since it was last read.");
}

void set_up(SqliteDatabase& database, Durability durability, DatabaseAccess access)
{
    database.run("PRAGMA cache_size=-16000; PRAGMA temp_store=MEMORY");
    if (access == DatabaseAccess::Read) {
        return;
    }
    // With the write-ahead log, readers and one writer do not wait for each other, and what is committed has
    // left this process: only a power loss can take the last turns back, and never the file's integrity.
    database.run("PRAGMA journal_mode=WAL");
    database.run(durability == Durability::Power ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
    database.run("PRAGMA journal_size_limit=67108864");
    upgrade_schema(database);
}

} // namespace

std::unique_ptr<Connection> make_sqlite_connection(const ConnectionOptions& options, const Clock& clock)
{
    return std::make_unique<SqliteConnection>(options, clock);
}

SqliteConnection::SqliteConnection(const ConnectionOptions& options, const Clock& clock)
    : file_(options.database_file), durability_(options.durability), access_(options.access), clock_(clock),
      overrides_(options.overrides.sqlite), trace_(options.trace), common_changes_(first_mark())
{
}

SqliteConnection::Session::Session(
    const std::filesystem::path& file, DatabaseAccess access, const std::shared_ptr<StatementTrace>& trace)
    : database(file,
        access == DatabaseAccess::Read ? SqliteDatabase::IfMissing::Fail : SqliteDatabase::IfMissing::Create,
        access == DatabaseAccess::Read ? SqliteDatabase::Access::Read : SqliteDatabase::Access::ReadWrite)
{
    database.set_trace(trace);
}

void SqliteConnection::Open(const std::string& /*connection_string*/)
{
    if (session_) {
        throw database_error(DatabaseError::Unspecified, "The connection is already open");
    }
    auto opening = std::make_unique<Session>(file_, access_, trace_);
    auto& database = opening->database;
    database.wait_for_locks(kLockPatience);
    check_schema_version(database); // before anything is written
    register_functions(database.handle(), clock_);
    set_up(database, durability_, access_);
    opening->waiting = std::make_unique<SqliteWaitingRows>(database, opening->edits, clock_);
    opening->activity = std::make_unique<SqliteActivity>(database, clock_);
    opening->numbers = std::make_unique<SqliteMessageNumbers>(database);
    if (access_ == DatabaseAccess::ReadWrite) {
        opening->checkpoints = std::make_unique<SqliteCheckpoints>(database);
    }
    opening->begin = std::make_unique<SqliteStatement>(database, "BEGIN IMMEDIATE");
    opening->commit = std::make_unique<SqliteStatement>(database, "COMMIT");
    opening->data_version = std::make_unique<SqliteStatement>(database, "PRAGMA data_version");
    opening->schema_version = std::make_unique<SqliteStatement>(database, "PRAGMA schema_version");
    for (auto* look : {&opening->data_version, &opening->schema_version}) {
        (*look)->hide(); // before nearly every statement: a trace would be half of it
    }
    session_ = std::move(opening);
    ++common_changes_; // other programs may have written while it was closed
}

void SqliteConnection::Close()
{
    struct Release { // also when the commit fails
        std::unique_ptr<Session>& session;
        ~Release() { session.reset(); }
    };
    session(); // an error when it is closed already
    const Release release{session_};
    commit();
    backlog_due_ = {};
    while (write_backlog(*session_)) { }
}

ConnectionState SqliteConnection::State() const
{
    return session_ ? ConnectionState::Open : ConnectionState::Closed;
}

void SqliteConnection::run(const Statement& statement, Parameters values)
{
    auto& open = session();
    auto& prepared = prepare(open, statement, values);
    const SqliteRun end(prepared);
    prepared.bind(values);
    run_change(open, prepared, statement.table);
}

ResultSet SqliteConnection::query(const Statement& statement, Parameters values)
{
    auto& open = session();
    auto& prepared = prepare(open, statement, values);
    const SqliteRun end(prepared);
    prepared.bind(values);
    bool more = next_row(open, prepared);
    ResultSet result{prepared.columns(), {}}; // only now: the first step notices columns that were added
    for (; more; more = next_row(open, prepared)) {
        result.rows.push_back(prepared.row());
    }
    return result;
}

bool SqliteConnection::finds(const Statement& statement, Parameters values)
{
    auto& open = session();
    auto& prepared = prepare(open, statement, values);
    const SqliteRun end(prepared);
    prepared.bind(values);
    return next_row(open, prepared);
}

void SqliteConnection::visit(const Statement& statement, Parameters values, const RowVisitor& visitor)
{
    auto& open = session();
    auto& prepared = prepare(open, statement, values);
    const SqliteRun end(prepared);
    prepared.bind(values);
    bool more = next_row(open, prepared);
    const auto columns = prepared.columns();
    for (; more; more = next_row(open, prepared)) {
        auto row = prepared.row();
        visitor(columns, row);
    }
}

bool SqliteConnection::begin_turn_to_log(Session& open, const RowChange& row)
{
    try {
        begin_turn(open);
        return true;
    } catch (const EngineError& failure) {
        if (access_ == DatabaseAccess::Read) {
            throw;
        }
        note_log_failure(failure);
        backlog_.add(LogBacklog::row_of(row, clock_.now()));
        return false;
    }
}

std::int64_t SqliteConnection::insert_row(const Table& table, const RowChange& row)
{
    auto& open = session();
    if (!waits(table, row)) {
        run_edit(EditKind::Insert, table, row);
        return open.database.last_key();
    }
    begin_turn(open);
    const auto key = open.waiting->add(table, row);
    open.changed = true;
    ++changes_of(table);
    if (open.waiting->full()) {
        write_waiting(open, open.waiting->waiting());
    }
    return key;
}

std::int64_t SqliteConnection::add_row(const Table& table, const RowChange& row)
{
    if (table.name == kLogTable.name && !begin_turn_to_log(session(), row)) {
        return 0;
    }
    return insert_row(table, row);
}

void SqliteConnection::update_row(const Table& table, std::int64_t key, const RowChange& row)
{
    auto& open = session();
    if (edit_waiting(open, table, [&] { return open.waiting->change(table, key, row); })) {
        return;
    }
    if (run_edit(EditKind::Update, table, row, key) == 0) {
        throw row_gone();
    }
}

void SqliteConnection::delete_row(const Table& table, std::int64_t key)
{
    auto& open = session();
    if (edit_waiting(open, table, [&] { return open.waiting->remove(table, key); })) {
        return;
    }
    if (run_edit(EditKind::Delete, table, {}, key) == 0) {
        throw row_gone();
    }
}

void SqliteConnection::commit()
{
    if (!session_) {
        return;
    }
    auto& open = *session_;
    if (!open.turn_lost && open.waiting->waiting() != 0) {
        write_last(open);
    }
    if (open.turn_lost) {
        rollback(); // never commit a partial transaction
        throw database_error(DatabaseError::Unspecified,
            "Changes made before a failure were lost in the database file " + open.database.name());
    }
    open.changed = false;
    if (std::exchange(open.in_turn, false)) {
        // Whoever asks makes up for what fails here, or is told of it.
        attempt([&] { open.activity->advance(); });
        attempt([&] { open.numbers->advance(); });
        const SqliteRun end(*open.commit);
        const int code = open.commit->step();
        if (code != SQLITE_DONE) {
            const auto failure = open.database.error(code);
            rollback();
            throw EngineError(failure);
        }
        open.waiting->turn_stored();
    }
    write_backlog(open);
}

void SqliteConnection::rollback()
{
    if (!session_) {
        return;
    }
    auto& open = *session_;
    keep_log(open);
    open.waiting->forget();
    open.numbers->turn_lost();
    open.turn_lost = false;
    open.changed = false;
    open.in_turn = false;
    ++common_changes_;
    if (open.database.in_transaction()) {
        attempt([&] { open.database.run("ROLLBACK"); });
    }
}

std::uint64_t SqliteConnection::change_mark(const Table& table)
{
    auto& open = session();
    if (!open.in_turn) { // once this turn writes, nobody else does
        notice_others(open);
    }
    // Neither part ever goes back, so their sum stays the same only while both do.
    return common_changes_ + changes_of(table);
}

std::uint64_t SqliteConnection::own_changes(const Table& table) const
{
    const auto known = std::find_if(own_changes_.begin(), own_changes_.end(),
        [&](const auto& changes) { return changes.first == table.name; });
    return known == own_changes_.end() ? 0 : known->second;
}

std::string SqliteConnection::description() const
{
    return std::string("SQLite ") + sqlite3_libversion() + ", "
        + (session_ ? session_->database.name() : file_.string() + " (closed)");
}

Maintenance& SqliteConnection::maintenance()
{
    auto& open = session();
    write_waiting(open, open.waiting->waiting());
    return open.tables;
}

SqliteConnection::Session& SqliteConnection::session()
{
    if (!session_) {
        throw database_error(
            DatabaseError::ConnectionClosed, "Operation is not allowed when the object is closed.");
    }
    return *session_;
}

SqliteStatement& SqliteConnection::prepare(Session& open, const Statement& statement, Parameters values)
{
    auto known = open.prepared.find(&statement);
    if (known == open.prepared.end()) {
        known =
            open.prepared.try_emplace(&statement, open.database, override_of(statement, overrides_)).first;
    }
    auto& prepared = known->second;
    assert(values.size() == prepared.statement.parameter_count());
    write_waiting(open, prepared.tables);
    if (prepared.reads_activity && open.activity->is_behind()) {
        begin_turn(open);
        open.activity->catch_up();
    }
    if (prepared.message_number > 0) {
        const auto& number = values[prepared.message_number - 1];
        if (open.numbers->lacks(number)) {
            begin_turn(open);
            open.numbers->enter_rows_with(number);
        }
    }
    return prepared.statement;
}

template <typename Edit> bool SqliteConnection::edit_waiting(Session& open, const Table& table, Edit edit)
{
    const auto bit = SqliteWaitingRows::bit_of(table.name);
    if (bit == 0) {
        return false;
    }
    begin_turn(open); // what is known of stored rows holds as long as nobody else writes
    const bool waits = edit();
    if (waits) {
        open.changed = true;
        ++changes_of(table);
    }
    if (waits ? open.waiting->full() : open.waiting->edits_wait(table)) {
        write_waiting(open, waits ? open.waiting->waiting() : bit);
    }
    return waits;
}

bool SqliteConnection::waits(const Table& table, const RowChange& row)
{
    return SqliteWaitingRows::bit_of(table.name) != 0
        && std::none_of(row.columns.begin(), row.columns.end(),
            [&](const std::string& column) { return equal_ignoring_case(column, table.key); });
}

std::uint64_t& SqliteConnection::changes_of(const Table& table)
{
    const auto known = std::find_if(own_changes_.begin(), own_changes_.end(),
        [&](const auto& changes) { return changes.first == table.name; });
    return known == own_changes_.end() ? own_changes_.emplace_back(table.name, 0).second : known->second;
}

void SqliteConnection::write_waiting(Session& open, SqliteWaitingRows::Tables tables)
{
    if ((open.waiting->waiting() & tables) == 0) {
        return;
    }
    try {
        open.waiting->write(tables);
    } catch (...) { // whatever failed, rows are missing that their callers take for stored
        open.turn_lost = true;
        fail(open, current_error());
    }
}

/// At the end of the turn: a failure is that of the turn.
void SqliteConnection::write_last(Session& open)
{
    try {
        write_waiting(open, open.waiting->waiting());
    } catch (const EngineError&) {
        rollback();
        throw;
    }
}

/// Looks whether another program has written since the last look.
void SqliteConnection::notice_others(Session& open)
{
    const auto number = [&](SqliteStatement& statement) {
        const SqliteRun end(statement);
        next_row(open, statement);
        return std::get<std::int64_t>(statement.column(0).held());
    };
    if (std::exchange(open.last_version, number(*open.data_version)) == open.last_version) {
        return;
    }
    ++common_changes_;
    open.waiting->forget_keys();
    open.numbers->others_wrote();
    if (std::exchange(open.last_schema, number(*open.schema_version)) != open.last_schema) {
        open.waiting->forget_columns();
    }
}

void SqliteConnection::keep_log(Session& open)
{
    for (auto& row : open.waiting->take_log()) {
        backlog_.add(std::move(row));
    }
}

/// Between turns: what the backlog fails for is no failure of a turn.
/// @return true when some of it is written.
bool SqliteConnection::write_backlog(Session& open)
{
    constexpr std::size_t kMostTogether = 1000; // take some milliseconds
    constexpr auto kPause = 1s;
    if (backlog_.empty() || open.in_turn || clock_.steady() < backlog_due_) {
        return false;
    }
    auto rows = backlog_.take(kMostTogether);
    try {
        begin(open);
        insert_backlog(open, rows);
        open.waiting->forget_keys();
        tell_log_written();
        return true;
    } catch (const EngineError& failure) {
        if (open.database.in_transaction()) {
            attempt([&] { open.database.run("ROLLBACK"); });
        }
        note_log_failure(failure);
        if (failure.number() == number_of(DatabaseError::Unspecified)) { // may succeed later
            backlog_.put_back(std::move(rows));
        }
        backlog_due_ = clock_.steady() + (open.locked_out ? 0s : kPause); // a look at a lock costs little
    }
    return false;
}

void SqliteConnection::insert_backlog(Session& open, const std::vector<LogRow>& rows)
{
    for (const auto& row : rows) {
        const auto change = LogBacklog::change_of(row);
        auto& statement = open.edits.statement(EditKind::Insert, kLogTable, change.columns);
        const SqliteRun end(statement);
        statement.bind(change.values);
        if (const int code = statement.step(); code != SQLITE_DONE) {
            throw open.database.error(code);
        }
    }
    const SqliteRun end(*open.commit);
    if (const int code = open.commit->step(); code != SQLITE_DONE) {
        throw open.database.error(code);
    }
    changes_of(kLogTable) += rows.size();
}

/// Told once as long as the same goes on.
void SqliteConnection::note_log_failure(const EngineError& failure)
{
    if (!std::exchange(log_failure_told_, true)) {
        notices_.push_back("Log rows could not be written: " + failure.description());
    }
}

void SqliteConnection::tell_log_written()
{
    if (!backlog_.empty()) {
        return;
    }
    std::string notice = std::exchange(log_failure_told_, false) ? "Log rows are written again" : "";
    if (const auto lost = backlog_.take_lost(); lost > 0) {
        notice += (notice.empty() ? "" : "; ") + std::to_string(lost) + " log lines could not be kept";
    }
    if (!notice.empty()) {
        notices_.push_back(std::move(notice));
    }
}

void SqliteConnection::begin(Session& open)
{
    // Who has waited in vain does not wait again until the lock is free: a program that holds it for long
    // would otherwise stop the engine for seconds with each of its writes.
    open.database.wait_for_locks(open.locked_out ? 0s : kLockPatience);
    const SqliteRun end(*open.begin);
    const int code = open.begin->step();
    open.locked_out = (code & 0xFF) == SQLITE_BUSY;
    if (code != SQLITE_DONE) {
        throw open.database.error(code);
    }
}

void SqliteConnection::begin_turn(Session& open)
{
    if (open.in_turn) {
        return;
    }
    write_backlog(open); // older rows of the log come first
    begin(open);
    open.in_turn = true;
    notice_others(open);
}

void SqliteConnection::run_change(Session& open, SqliteStatement& statement, const Table* table)
{
    begin_turn(open);
    next_row(open, statement);
    if (open.database.changed_rows() > 0) {
        open.changed = true;
        if (table != nullptr) {
            ++changes_of(*table);
        }
    }
}

bool SqliteConnection::next_row(Session& open, SqliteStatement& statement)
{
    const int code = statement.step();
    if (code != SQLITE_ROW && code != SQLITE_DONE) {
        fail(open, open.database.error(code));
    }
    return code == SQLITE_ROW;
}

std::int64_t SqliteConnection::run_edit(
    EditKind kind, const Table& table, const RowChange& row, std::optional<std::int64_t> key)
{
    auto& open = session();
    auto& statement = open.edits.statement(kind, table, row.columns);
    const SqliteRun end(statement);
    statement.bind(row.values);
    if (key) {
        const auto columns = static_cast<int>(row.values.size());
        statement.bind(columns + 1, Value(*key));
        statement.bind(columns + 2, Value(*key));
    }
    run_change(open, statement, &table);
    return open.database.changed_rows();
}

void SqliteConnection::fail(Session& open, const EngineError& failure)
{
    if (!open.in_turn || open.database.in_transaction()) {
        throw EngineError(failure); // only this statement failed
    }
    open.in_turn = false;
    keep_log(open);
    open.waiting->forget();
    open.numbers->turn_lost();
    open.turn_lost = open.turn_lost || std::exchange(open.changed, false);
    ++common_changes_;
    throw database_error(DatabaseError::Unspecified,
        failure.description() + "; what was changed before it in the same turn is lost");
}

} // namespace qz::platform
