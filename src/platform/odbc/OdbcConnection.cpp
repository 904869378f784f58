#include "platform/odbc/OdbcConnection.h"

#include "base/Text.h"
#include "platform/odbc/OdbcProvider.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>

namespace qz::platform {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

/// Change counters are read once a turn, and never believed for longer than this.
constexpr auto kMarksFresh = 100ms;
constexpr std::size_t kMostKept = 4096;
constexpr std::size_t kMostRowsKept = 64;
constexpr std::size_t kKeysTogether = 256;
/// Rows of the log that are sent together: more would gain little.
constexpr std::size_t kMostLogRowsTogether = 500;
/// More should not wait for the end of the turn: they take memory.
constexpr std::size_t kMostLogWrites = 40;

/// Marks of different sessions never meet: see SqliteConnection.
std::uint64_t first_mark()
{
    static std::atomic<std::uint64_t> sessions{0};
    return (std::uint64_t{1} << 63U) + (++sessions << 40U);
}

EngineError closed()
{
    return database_error(
        DatabaseError::ConnectionClosed, "Operation is not allowed when the object is closed.");
}

EngineError row_gone()
{
    return database_error(DatabaseError::RowGone,
        "Row cannot be located for updating. Some values may have been changed since it was last read.");
}

/// An INSERT into the log of rows that get their times from the server.
Step log_insert(const ServerDatabase& server)
{
    constexpr auto kText = ServerColumn::Kind::Text;
    return insert_step(server, kLogTable, {{"username", kText}, {"remoteip", kText}, {"action", kText}});
}

/// A row of the log with the time of its event.
bool has_time(const RowChange& row)
{
    return std::any_of(row.columns.begin(), row.columns.end(),
        [](const std::string& column) { return equal_ignoring_case(column, "ActionTime"); });
}

std::string lost_lines(std::int64_t count)
{
    return std::to_string(count) + " log lines could not be kept";
}

std::string seconds_text(std::chrono::seconds time)
{
    return std::to_string(time.count()) + (time.count() == 1 ? " second" : " seconds");
}

} // namespace

std::unique_ptr<Connection> make_odbc_connection(const ConnectionOptions& options, const OdbcTimes& times)
{
    return std::make_unique<OdbcConnection>(options, times);
}

OdbcConnection::OdbcConnection(const ConnectionOptions& options, const OdbcTimes& times)
    : times_(times), overrides_(options.overrides), trace_(options.trace), reconnector_(times, trace_),
      common_changes_(first_mark())
{
}

void OdbcConnection::Open(const std::string& connection_string)
{
    if (session_) {
        throw database_error(DatabaseError::Unspecified, "The connection is already open");
    }
    connection_string_ = connection_string;
    reconnector_.stop();
    auto link = std::make_unique<OdbcLink>(connection_string, times_, std::string(), trace_);
    try {
        link->wait();
    } catch (const LinkLost& lost) {
        if (lost.kind != DatabaseError::LogonFailed) { // a wrong password does not become right
            reconnector_.begin(connection_string);
        }
        throw database_error(lost.kind, lost.reason);
    }
    use(std::move(link));
    const auto version = session_->tables.schema_version();
    if (version > session_->tables.current_schema_version()) {
        session_.reset();
        throw database_error(DatabaseError::Unspecified,
            "The database has schema version " + std::to_string(version)
                + ", which is newer than this program; it was left untouched. Use the program version that "
                  "made it, or a newer one");
    }
    if (version != 0 && version < session_->tables.current_schema_version()) {
        upgrade();
    }
}

/// Tables that `db init` made once are brought up to date, as the embedded database's are.
void OdbcConnection::upgrade()
{
    try {
        session_->tables.make_schema();
    } catch (const EngineError& error) {
        session_.reset();
        throw database_error(DatabaseError::Unspecified,
            "The tables are of an older version and could not be brought up to date (velto-server db init, "
            "by "
            "a user who may change tables, does it): "
                + error.description());
    }
}

void OdbcConnection::Close()
{
    reconnector_.stop();
    session();       // an error when it is closed already
    struct Release { // also when the commit fails
        std::unique_ptr<Session>& session;
        ~Release() { session.reset(); }
    };
    const Release release{session_};
    commit();
}

ConnectionState OdbcConnection::State() const
{
    return session_ ? ConnectionState::Open : ConnectionState::Closed;
}

template <typename Work> auto OdbcConnection::with_session(Work work)
{
    auto& open = session();
    try {
        return work(open);
    } catch (const OdbcFailure& failure) {
        throw to_error(failure);
    } catch (const LinkLost& lost) {
        lose(lost);
        throw database_error(lost.kind, lost.reason);
    }
}

void OdbcConnection::run(const Statement& statement, Parameters values)
{
    with_session([&](Session& open) {
        if (must_flush_for(statement)) {
            flush(open);
        }
        const auto outcome = open.turn.write(step_of(statement, values));
        open.marks_read.reset();
        if (statement.table != nullptr) {
            count_own_change(open, *statement.table, outcome.changed_rows);
        }
    });
}

ResultSet OdbcConnection::query(const Statement& statement, Parameters values)
{
    return with_session([&](Session& open) {
        // No one mark tells of changes of two tables.
        const bool kept =
            statement.table != nullptr && statement.joined == nullptr && !waits(*statement.table);
        return kept ? select_kept(open, statement, values) : select(open, statement, values);
    });
}

ResultSet OdbcConnection::select(Session& open, const Statement& statement, Parameters values)
{
    if (must_flush_for(statement)) {
        flush(open);
    }
    const auto step = step_of(statement, values);
    auto result = open.turn.read(step);
    if (statement.table != nullptr && waiting_.shows_in(result, *statement.table)) {
        flush(open);
        result = open.turn.read(step);
    }
    return result;
}

/// The mark is older than the rows, so a change between the two only makes the next query ask again.
ResultSet OdbcConnection::select_kept(Session& open, const Statement& statement, Parameters values)
{
    notice_repeated_turn(open);
    const auto mark = counted_mark(open, *statement.table);
    KeptKey key{&statement, std::vector<Value>(values.begin(), values.end())};
    const auto known = kept_.find(key);
    if (mark && known != kept_.end() && known->second.mark == mark) {
        return known->second.result;
    }
    auto result = select(open, statement, values);
    if (mark && result.rows.size() <= kMostRowsKept) {
        if (kept_.size() >= kMostKept) {
            kept_.clear();
        }
        kept_.insert_or_assign(std::move(key), Kept{*mark, result});
    }
    return result;
}

std::size_t OdbcConnection::KeptHash::operator()(const KeptKey& key) const
{
    auto hash = std::hash<const Statement*>{}(key.statement);
    for (const auto& value : key.values) {
        hash = hash * 31 + std::hash<std::string>{}(value.text());
    }
    return hash;
}

std::int64_t OdbcConnection::insert_row(const Table& table, const RowChange& row)
{
    return with_session([&](Session& open) {
        if (waits(table)) {
            if (const auto key = take_key(open, table)) {
                add_waiting(open, table, *key, row);
                return *key;
            }
            flush(open); // or the rows that wait would get later keys
        }
        auto again = row;
        again.columns.emplace_back(table.key);
        again.values.emplace_back(std::int64_t{0});
        auto with_key = open.tables.insert_with_key(table, again);
        const auto outcome =
            open.turn.write(open.tables.insert_for_key(table, row), [&](const Outcome& inserted) {
                with_key.rows.front().back() = inserted.result.rows.at(0).at(0);
                return with_key;
            });
        open.marks_read.reset();
        count_own_change(open, table, 1);
        return static_cast<std::int64_t>(outcome.result.rows.at(0).at(0).number());
    });
}

std::int64_t OdbcConnection::add_row(const Table& table, const RowChange& row)
{
    if (table.name == kLogTable.name && !has_time(row)) {
        log(LogBacklog::row_of(row, clock_.now()));
        return 0;
    }
    if (!waits(table)) {
        return insert_row(table, row);
    }
    return with_session([&](Session& open) {
        const auto key = take_key(open, table).value_or(0);
        add_waiting(open, table, key, row);
        return key;
    });
}

/// Also without a session.
void OdbcConnection::log(LogRow row)
{
    if (!session_) {
        if (server_ == nullptr || !reconnector_.is_running()) {
            throw closed();
        }
        backlog_.add(std::move(row));
        return;
    }
    if (log_.empty() || log_.back().step.rows.size() >= kMostLogRowsTogether) {
        log_.push_back({log_insert_});
    }
    log_.back().step.rows.push_back(std::move(row.values));
    log_.back().times.push_back(row.time);
    if (log_.size() > kMostLogWrites) {
        with_session([&](Session& open) { flush(open); });
    }
}

std::optional<std::int64_t> OdbcConnection::take_key(Session& open, const Table& table)
{
    if (open.link->server().reserve_keys.empty() || !open.link->facts().transactions) {
        return std::nullopt;
    }
    auto& keys = open.keys[table.name];
    if (keys.empty()) {
        const auto step = open.tables.reserve_keys(table, kKeysTogether);
        const bool adds_rows = step.sql.starts_with("INSERT");
        const auto reserved = adds_rows ? open.turn.try_out(step) : open.turn.read(step);
        for (const auto& row : reserved.rows) {
            keys.push_back(static_cast<std::int64_t>(row.at(0).number()));
        }
    }
    const auto key = keys.front();
    keys.pop_front();
    return key;
}

/// @param key  0 for a row that the database will give one.
void OdbcConnection::add_waiting(Session& open, const Table& table, std::int64_t key, const RowChange& row)
{
    auto converted = open.tables.converted(table, row);
    if (key == 0) {
        waiting_.add(table, std::move(converted));
    } else {
        converted.columns.push_back(lower(table.key));
        converted.values.emplace_back(key);
        waiting_.add(table, key, std::move(converted));
    }
    if (waiting_.full()) {
        flush(open);
    }
}

void OdbcConnection::update_row(const Table& table, std::int64_t key, const RowChange& row)
{
    with_session([&](Session& open) {
        if (waits(table)) {
            waiting_.change(table, key, open.tables.converted(table, row));
            if (waiting_.full()) {
                flush(open);
            }
            return;
        }
        const auto changed = open.turn.write(open.tables.update(table, key, row)).changed_rows;
        open.marks_read.reset();
        count_own_change(open, table, changed);
        // Some servers do not count a row that had these values already.
        if (changed == 0 && open.turn.read(open.tables.count(table, key)).rows.at(0).at(0).number() == 0) {
            throw row_gone();
        }
    });
}

void OdbcConnection::delete_row(const Table& table, std::int64_t key)
{
    with_session([&](Session& open) {
        if (waits(table)) {
            waiting_.remove(table, key);
            if (waiting_.full()) {
                flush(open);
            }
            return;
        }
        const auto outcome = open.turn.write(open.tables.remove(table, key));
        open.marks_read.reset();
        count_own_change(open, table, outcome.changed_rows);
        if (outcome.changed_rows == 0) {
            throw row_gone();
        }
    });
}

void OdbcConnection::commit()
{
    if (!session_) {
        find_way_back();
        if (!session_) {
            return;
        }
    }
    with_session([&](Session& open) {
        open.marks_read.reset();
        flush_and_commit(open);
        if (SteadyClock::now() - open.zone_checked > 1min) {
            open.zone_checked = SteadyClock::now();
            open.link->follow_time_zone();
        }
    });
}

void OdbcConnection::rollback()
{
    forget_turn();
    if (!session_) {
        return;
    }
    try {
        session_->turn.rollback();
    } catch (const LinkLost& lost) {
        lose(lost);
    }
}

/// Marks of changes that are taken back come again for others, so they begin anew.
void OdbcConnection::forget_turn()
{
    waiting_.forget();
    turn_failure_.reset();
    kept_.clear();
    common_changes_ = first_mark();
    if (session_) {
        session_->marks_read.reset();
    }
}

std::uint64_t OdbcConnection::change_mark(const Table& table)
{
    return with_session([&](Session& open) {
        notice_repeated_turn(open);
        const auto counted = counted_mark(open, table);
        return counted ? *counted : common_changes_ + ++uncounted_looks_;
    });
}

/// Rows that the turn has added have other keys and times when its statements were run again.
void OdbcConnection::notice_repeated_turn(Session& open)
{
    if (open.turn.take_repeated()) {
        common_changes_ = first_mark();
        kept_.clear();
    }
}

/// Nothing for a table whose changes nobody counts.
std::optional<std::uint64_t> OdbcConnection::counted_mark(Session& open, const Table& table) const
{
    if (!open.link->facts().counts_changes) {
        return std::nullopt;
    }
    const auto now = SteadyClock::now();
    if (!open.marks_read || now - *open.marks_read > kMarksFresh) {
        open.marks.clear();
        const auto counters = open.turn.read({"SELECT name, changes FROM velto_changes"});
        for (const auto& row : counters.rows) {
            open.marks[lower(row.at(0).text())] = static_cast<std::uint64_t>(row.at(1).number());
        }
        open.marks_read = now;
    }
    const auto mark = open.marks.find(table.name);
    return mark == open.marks.end() ? std::nullopt : std::optional(common_changes_ + mark->second);
}

std::uint64_t OdbcConnection::own_changes(const Table& table) const
{
    const auto own = own_changes_.find(table.name);
    return own == own_changes_.end() ? 0 : own->second;
}

/// Never more than the server's trigger counts, or a change of another program would be taken for one of our
/// own: a trigger of statements may or may not count one that changes no row.
void OdbcConnection::count_own_change(Session& open, const Table& table, std::int64_t rows)
{
    if (!open.marks.contains(table.name)) {
        return; // nobody counts, or nobody has asked yet
    }
    const auto changed = (std::max)(rows, std::int64_t{0});
    const auto counted = open.link->server().counts_rows ? changed : (std::min)(changed, std::int64_t{1});
    own_changes_[table.name] += static_cast<std::uint64_t>(counted);
}

std::string OdbcConnection::description() const
{
    if (!session_) {
        return "database server (closed)";
    }
    const auto& facts = session_->link->facts();
    return std::string(facts.server->name) + " " + facts.version + ", by ODBC"
        + (facts.transactions ? "" : ", without transactions");
}

Maintenance& OdbcConnection::maintenance()
{
    return session().tables;
}

OdbcConnection::Session& OdbcConnection::session()
{
    if (!session_) {
        throw closed();
    }
    return *session_;
}

void OdbcConnection::use(std::unique_ptr<OdbcLink> link)
{
    if (server_ != &link->server()) {
        server_ = &link->server();
        log_insert_ = log_insert(*server_);
    }
    session_ = std::make_unique<Session>(std::move(link), times_);
    common_changes_ = first_mark();
}

Step OdbcConnection::step_of(const Statement& statement, Parameters values) const
{
    const auto sql = override_of(statement, overrides_.*server_->overrides).sql;
    Step step{std::string(sql)};
    step.rows.front().assign(values.begin(), values.end());
    step.may_take_long = equal_ignoring_case(sql.substr(0, 6), "delete");
    return step;
}

void OdbcConnection::lose(const LinkLost& lost)
{
    if (!session_) {
        return;
    }
    const auto former = session_->link->facts().session;
    lost_schema_ = LostSchema{session_->tables.schema_version(), has_tables(session_->link->facts())};
    session_.reset();
    forget_turn();
    for (auto& write : std::exchange(log_, {})) {
        for (auto& row : std::move(write).rows()) {
            backlog_.add(std::move(row));
        }
    }
    notices_.push_back("Database connection lost: " + lost.reason);
    reconnector_.begin(connection_string_, former);
}

void OdbcConnection::find_way_back()
{
    const auto away = reconnector_.running_time();
    auto link = reconnector_.poll();
    if (!link) {
        return;
    }
    if (auto reason = reason_against(link->facts()); !reason.empty()) {
        reconnector_.refuse();
        if (reason != refused_) {
            notices_.push_back(
                "The database " + reason + ": it is left alone until it is the right one again");
        }
        refused_ = std::move(reason);
        return;
    }
    refused_.clear();
    use(std::move(link));
    auto notice = "Database connection restored after " + seconds_text(away);
    if (const auto lost = backlog_.take_lost(); lost > 0) {
        notice += "; " + lost_lines(lost);
    }
    notices_.push_back(std::move(notice));
}

/// Why a database that answers again is not used; empty when it is. Meanwhile somebody may have restored
/// another one in its place.
std::string OdbcConnection::reason_against(const ServerFacts& facts) const
{
    const auto version = "has schema version " + std::to_string(facts.schema_version);
    if (facts.schema_version > static_cast<int>(facts.server->migrations.size())) {
        return version + ", which is newer than this program";
    }
    if (lost_schema_ && facts.schema_version < lost_schema_->version) {
        return version + ", but had " + std::to_string(lost_schema_->version) + " before";
    }
    return lost_schema_ && lost_schema_->has_tables && !has_tables(facts) ? "has no tables any more" : "";
}

/// Also for tables without a version, which somebody made by hand.
bool OdbcConnection::has_tables(const ServerFacts& facts)
{
    return facts.columns.contains("users");
}

bool OdbcConnection::waits(const Table& table)
{
    return table.name == kLogTable.name || table.name == "messages" || table.name == "queue"
        || table.name == "queuetext" || table.name == "queuecount";
}

bool OdbcConnection::must_flush_for(const Statement& statement) const
{
    if (statement.ignores_pending_writes) {
        return false;
    }
    const auto concerns = [&](const Table* table) {
        return table != nullptr
            && (waiting_.concerns(*table, statement.finds_by_fixed_columns)
                || (table->name == kLogTable.name && !(log_.empty() && backlog_.empty())));
    };
    return concerns(statement.table) || concerns(statement.joined);
}

/// A write that fails here takes the whole turn with it, as it would at the turn's end.
void OdbcConnection::flush(Session& open)
{
    const auto steps = waiting_.steps(open.tables);
    waiting_.forget();
    for (const auto& step : steps) {
        try {
            open.turn.write(step);
        } catch (const OdbcFailure& failure) {
            turn_failure_ = to_error(failure);
        }
    }
    write_log_slowly(open, take_log(open));
}

/// All that waits and the commit in one go. When a write of the turn fails, nothing of it is stored; the log
/// waits on.
void OdbcConnection::flush_and_commit(Session& open)
{
    if (open.turn.take_lost()) {
        turn_failure_ = database_error(DatabaseError::Unspecified,
            "Changes made before a failure were lost in the database " + description());
    }
    if (turn_failure_) {
        const EngineError failure = *turn_failure_;
        rollback();
        throw EngineError(failure);
    }
    auto steps = waiting_.steps(open.tables);
    waiting_.forget();
    const auto own = steps.size();
    auto log = take_log(open);
    if (own == 0 && log.empty()) {
        open.turn.commit();
        return;
    }
    for (const auto& write : log) {
        steps.push_back(write.step);
    }
    OdbcTurn::Ending ending;
    try {
        ending = open.turn.write_and_commit(steps);
    } catch (const LinkLost&) {
        put_back(std::move(log));
        throw;
    }
    if (!ending.failure) {
        waiting_told_ = false;
        tell_lost_log_rows();
        return;
    }
    if (ending.done < own || ending.done == steps.size()) {
        put_back(std::move(log));
        rollback();
        throw to_error(*ending.failure);
    }
    const auto written = static_cast<std::ptrdiff_t>(ending.done - own);
    log.erase(log.begin(), log.begin() + written);
    write_log_slowly(open, std::move(log));
    open.turn.commit();
}

/// What waits from before gets the times of its events; a row of this turn gets its time from the server, as
/// it is inserted.
std::vector<OdbcConnection::LogWrite> OdbcConnection::take_log(Session& open)
{
    std::vector<LogWrite> all;
    while (!backlog_.empty()) {
        auto rows = backlog_.take(kMostLogRowsTogether);
        LogWrite write;
        try {
            for (auto& row : rows) {
                auto insert = open.tables.insert(kLogTable, LogBacklog::change_of(std::move(row)));
                if (write.step.sql.empty()) {
                    write.step = std::move(insert);
                } else {
                    write.step.rows.push_back(std::move(insert.rows.front()));
                }
            }
            all.push_back(std::move(write));
        } catch (const EngineError& error) { // a table that somebody made by hand
            notices_.push_back("Log rows could not be written: " + error.description());
        }
    }
    auto own = std::exchange(log_, {});
    all.insert(all.end(), std::make_move_iterator(own.begin()), std::make_move_iterator(own.end()));
    return all;
}

std::vector<LogRow> OdbcConnection::LogWrite::rows() &&
{
    std::vector<LogRow> rows;
    rows.reserve(step.rows.size());
    for (std::size_t i = 0; i < step.rows.size(); ++i) {
        auto& values = step.rows[i];
        if (times.empty()) {
            const auto time = values.front().date();
            values.erase(values.begin());
            rows.push_back({time, std::move(values)});
        } else {
            rows.push_back({times[i], std::move(values)});
        }
    }
    return rows;
}

std::vector<OdbcConnection::LogWrite> OdbcConnection::LogWrite::single_rows() &&
{
    std::vector<LogWrite> single;
    for (std::size_t i = 0; i < step.rows.size(); ++i) {
        auto& one = single.emplace_back(LogWrite{{step.sql, {std::move(step.rows[i])}, step.many}});
        if (!times.empty()) {
            one.times = {times[i]};
        }
    }
    return single;
}

void OdbcConnection::put_back(std::vector<LogWrite> writes)
{
    std::vector<LogRow> rows;
    for (auto& write : writes) {
        auto each = std::move(write).rows();
        rows.insert(rows.end(), std::make_move_iterator(each.begin()), std::make_move_iterator(each.end()));
    }
    backlog_.put_back(std::move(rows));
}

void OdbcConnection::tell_lost_log_rows()
{
    if (const auto lost = backlog_.take_lost(); lost > 0) {
        notices_.push_back(lost_lines(lost));
    }
}

/// Row by row where rows fail together, so that only those at fault are given up. What may succeed later
/// waits on.
void OdbcConnection::write_log_slowly(Session& open, std::vector<LogWrite> writes)
{
    for (auto write = writes.begin(); write != writes.end(); ++write) {
        const auto rest = [&] {
            return std::vector<LogWrite>(
                std::make_move_iterator(write), std::make_move_iterator(writes.end()));
        };
        try {
            open.turn.write(write->step);
            waiting_told_ = false;
        } catch (const LinkLost&) {
            put_back(rest());
            throw;
        } catch (const OdbcFailure& failure) {
            note_log_failure(failure);
            if (failure.passing) {
                put_back(rest());
                return;
            }
            if (write->step.rows.size() > 1) {
                auto single = std::move(*write).single_rows();
                single.insert(
                    single.end(), std::make_move_iterator(write + 1), std::make_move_iterator(writes.end()));
                write_log_slowly(open, std::move(single));
                return;
            }
        }
    }
}

/// Told once as long as the same goes on.
void OdbcConnection::note_log_failure(const OdbcFailure& failure)
{
    if (!failure.passing || !std::exchange(waiting_told_, true)) {
        notices_.push_back("Log rows could not be written: " + failure.description);
    }
}

} // namespace qz::platform
