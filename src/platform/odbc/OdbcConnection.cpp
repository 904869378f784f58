#include "platform/odbc/OdbcConnection.h"

#include "base/Text.h"
#include "platform/database/Tokenizer.h"
#include "platform/odbc/OdbcProvider.h"

#include <algorithm>
#include <array>
#include <atomic>

namespace qz::platform {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

/// Change counters are read once a turn, and never believed for longer than this.
constexpr auto kMarksFresh = 100ms;
constexpr std::size_t kMostKept = 4096;
constexpr std::size_t kMostRowsKept = 64;
constexpr std::string_view kLog = "log";

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

std::set<std::string> words_of(std::string_view text)
{
    std::set<std::string> words;
    Tokenizer tokens(text, Holes::Yes);
    for (auto token = tokens.next(); token.kind != TokenKind::End; token = tokens.next()) {
        if (token.kind == TokenKind::Word) {
            words.insert(lower(token.text));
        }
    }
    return words;
}

/// Sets table and keys of a result whose rows can be edited, and takes a key away that the text did not ask
/// for.
void take_keys(ResultSet& result, const Table* table, bool hidden)
{
    const auto found =
        std::find_if(result.columns.begin(), result.columns.end(), [&](const std::string& column) {
            return table != nullptr && equal_ignoring_case(column, table->key);
        });
    if (found == result.columns.end()) {
        return;
    }
    result.table = table;
    const auto position = static_cast<std::size_t>(found - result.columns.begin());
    for (auto& row : result.rows) {
        result.keys.push_back(static_cast<std::int64_t>(row[position].number()));
        if (hidden) {
            row.pop_back();
        }
    }
    if (hidden) {
        result.columns.pop_back();
    }
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
    : times_(times), catalogue_(options.statements), reconnector_(times), common_changes_(first_mark())
{
}

void OdbcConnection::Open(const std::string& connection_string)
{
    if (session_) {
        throw database_error(DatabaseError::Unspecified, "The connection is already open");
    }
    connection_string_ = connection_string;
    reconnector_.stop();
    auto link = std::make_unique<OdbcLink>(connection_string, times_);
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
    end_turn();
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

void OdbcConnection::Execute(const std::string& sql)
{
    if (!session_ && !reconnector_.is_running()) {
        throw closed();
    }
    const auto match = catalogue_.look_up(sql);
    const auto* table = match.shape->statement.table;
    if (const auto* known = prepared_.empty() ? nullptr : &prepare(*match.shape);
        known != nullptr && known->inserts && table != nullptr && waits(*table)) {
        const bool is_log = table->name == kLog;
        if (!is_log) {
            session(); // only the log goes on without one
        }
        auto& waiting = is_log ? log_ : pending_;
        if (!waiting.full()) {
            waiting.add_insert(lower(table->name), known->translation.sql, values_of(match, *known));
        } else if (is_log) {
            ++lost_rows_;
        } else {
            throw database_error(DatabaseError::Unspecified, "Too much is waiting to be written");
        }
        return;
    }
    with_session([&](Session& open) {
        auto& prepared = prepare(*match.shape);
        if (must_flush_for(prepared)) {
            flush(open);
        }
        const Step step{prepared.translation.sql, {values_of(match, prepared)}};
        if (prepared.reads) {
            open.turn.read(step);
        } else {
            open.turn.write(step);
            open.marks_read.reset();
        }
    });
}

ResultSet OdbcConnection::query(const std::string& sql)
{
    return with_session([&](Session& open) {
        const auto match = catalogue_.look_up(sql);
        auto& prepared = prepare(*match.shape);
        const auto* table = match.shape->statement.table;
        return table != nullptr && prepared.reads && !waits(*table) && open.link->facts().counts_changes
            ? select_kept(open, sql, match, prepared)
            : select(open, match, prepared);
    });
}

ResultSet OdbcConnection::select(Session& open, const Match& match, const Prepared& prepared)
{
    if (must_flush_for(prepared)) {
        flush(open);
    }
    const Step step{prepared.translation.sql, {values_of(match, prepared)}};
    auto result = open.turn.read(step);
    take_keys(result, match.shape->statement.table, prepared.translation.hidden_key);
    if (shows_waiting(result)) {
        flush(open);
        result = open.turn.read(step);
        take_keys(result, match.shape->statement.table, prepared.translation.hidden_key);
    }
    for (const auto key : result.keys) {
        if (waits(*result.table)) {
            seen_.emplace(result.table->name, key);
        }
    }
    return result;
}

/// The mark is older than the rows, so a change between the two only makes the next query ask again.
ResultSet OdbcConnection::select_kept(
    Session& open, const std::string& sql, const Match& match, const Prepared& prepared)
{
    const auto mark = change_mark(*match.shape->statement.table);
    const auto known = kept_.find(sql);
    if (known != kept_.end() && known->second.mark == mark) {
        return known->second.result;
    }
    auto result = select(open, match, prepared);
    if (result.rows.size() <= kMostRowsKept) {
        if (kept_.size() >= kMostKept) {
            kept_.clear();
        }
        kept_.insert_or_assign(sql, Kept{mark, result});
    }
    return result;
}

ResultSet OdbcConnection::describe(const std::string& sql)
{
    return with_session([&](Session& open) {
        const auto match = catalogue_.look_up(sql);
        const auto& prepared = prepare(*match.shape);
        const auto* table = match.shape->statement.table;
        ResultSet result;
        if (table != nullptr && lower(match.shape->statement.text) == "select * from " + lower(table->name)) {
            for (const auto& column : open.tables.columns(table->name)) {
                result.columns.push_back(column.name);
            }
            take_keys(result, table, false);
            return result;
        }
        result = select(open, match, prepared);
        result.rows.clear();
        result.keys.clear();
        return result;
    });
}

std::int64_t OdbcConnection::insert_row(const Table& table, const RowChange& row)
{
    return with_session([&](Session& open) {
        if (!pending_.empty()) {
            flush(open); // or those rows would get later keys
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
        return static_cast<std::int64_t>(outcome.result.rows.at(0).at(0).number());
    });
}

std::int64_t OdbcConnection::add_row(const Table& table, const RowChange& row)
{
    if (!waits(table)) {
        return insert_row(table, row);
    }
    with_session([&](Session& open) {
        const auto step = open.tables.insert(table, row);
        pending_.add_insert(lower(table.name), step.sql, step.rows.front());
        if (pending_.full()) {
            flush(open);
        }
    });
    return 0;
}

void OdbcConnection::update_row(const Table& table, std::int64_t key, const RowChange& row)
{
    with_session([&](Session& open) {
        const auto step = open.tables.update(table, key, row);
        if (seen_.contains({table.name, key})) {
            std::vector<std::string> columns;
            for (const auto& column : row.columns) {
                columns.push_back(lower(column));
            }
            pending_.add_update(lower(table.name), step, std::move(columns), key);
            return;
        }
        const auto changed = open.turn.write(step).changed_rows;
        open.marks_read.reset();
        // Some servers do not count a row that had these values already.
        if (changed == 0 && open.turn.read(open.tables.count(table, key)).rows.at(0).at(0).number() == 0) {
            throw row_gone();
        }
    });
}

void OdbcConnection::delete_row(const Table& table, std::int64_t key)
{
    with_session([&](Session& open) {
        if (!pending_.empty()) {
            flush(open);
        }
        const auto outcome = open.turn.write(open.tables.remove(table, key));
        open.marks_read.reset();
        if (outcome.changed_rows == 0) {
            throw row_gone();
        }
    });
}

void OdbcConnection::end_turn()
{
    seen_.clear();
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

void OdbcConnection::abandon_turn()
{
    forget_turn();
    if (!session_) {
        return;
    }
    try {
        session_->turn.abandon();
    } catch (const LinkLost& lost) {
        lose(lost);
    }
}

/// Marks of changes that are taken back come again for others, so they begin anew.
void OdbcConnection::forget_turn()
{
    pending_.take();
    turn_failure_.reset();
    seen_.clear();
    kept_.clear();
    common_changes_ = first_mark();
    if (session_) {
        session_->marks_read.reset();
    }
}

std::uint64_t OdbcConnection::change_mark(const Table& table)
{
    return with_session([&](Session& open) {
        if (!open.link->facts().counts_changes) {
            return ++common_changes_;
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
        return mark == open.marks.end() ? ++common_changes_ : common_changes_ + mark->second;
    });
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
    if (dialect_ != &link->dialect()) {
        dialect_ = &link->dialect();
        prepared_.clear();
        prepared_.resize(catalogue_.size());
    }
    session_ = std::make_unique<Session>(std::move(link), times_);
    common_changes_ = first_mark();
}

OdbcConnection::Prepared& OdbcConnection::prepare(const Shape& shape)
{
    auto& prepared = prepared_[shape.number];
    if (!prepared) {
        auto words = words_of(shape.statement.run_as.empty() ? shape.statement.text : shape.statement.run_as);
        const auto begins = [&](std::string_view word) {
            return lower(shape.statement.text.substr(0, word.size())) == word;
        };
        prepared = std::make_unique<Prepared>(Prepared{
            translate(shape.statement, *dialect_), std::move(words), begins("select"), begins("insert")});
    }
    return *prepared;
}

std::vector<Value> OdbcConnection::values_of(const Match& match, const Prepared& prepared)
{
    std::vector<Value> values;
    values.reserve(prepared.translation.holes.size());
    for (const auto hole : prepared.translation.holes) {
        values.push_back(value_of(match.values.at(hole)));
    }
    return values;
}

void OdbcConnection::lose(const LinkLost& lost)
{
    if (!session_) {
        return;
    }
    session_.reset();
    forget_turn();
    notices_.push_back("Database connection lost: " + lost.reason);
    reconnector_.begin(connection_string_);
}

void OdbcConnection::find_way_back()
{
    const auto away = reconnector_.running_time();
    auto link = reconnector_.poll();
    if (!link) {
        return;
    }
    use(std::move(link));
    auto notice = "Database connection restored after " + seconds_text(away);
    if (const auto lost = std::exchange(lost_rows_, 0); lost > 0) {
        notice += "; " + std::to_string(lost) + " log lines could not be kept";
    }
    notices_.push_back(std::move(notice));
}

bool OdbcConnection::waits(const Table& table)
{
    return table.name == kLog || table.name == "messages" || table.name == "queue";
}

/// New rows show in every query of their table; a changed row only when its new values decide about it, or
/// when it is among the rows (see shows_waiting).
bool OdbcConnection::must_flush_for(const Prepared& prepared) const
{
    if (!log_.empty() && prepared.words.contains(std::string(kLog))) {
        return true;
    }
    const auto& waiting = pending_.all();
    return std::any_of(waiting.begin(), waiting.end(), [&](const PendingWrites::Write& write) {
        if (!prepared.words.contains(write.table)) {
            return false;
        }
        return write.keys.empty() || !prepared.reads
            || std::any_of(write.changed_columns.begin(), write.changed_columns.end(),
                [&](const std::string& column) { return prepared.words.contains(column); });
    });
}

bool OdbcConnection::shows_waiting(const ResultSet& result) const
{
    return result.table != nullptr
        && std::any_of(result.keys.begin(), result.keys.end(),
            [&](std::int64_t key) { return pending_.updates(lower(result.table->name), key); });
}

/// A write that fails here takes the whole turn with it, as it would at the turn's end.
void OdbcConnection::flush(Session& open)
{
    for (const auto& write : pending_.take()) {
        try {
            open.turn.write(write.step);
        } catch (const OdbcFailure& failure) {
            turn_failure_ = to_error(failure);
        }
    }
    write_log_slowly(open, log_.take());
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
        abandon_turn();
        throw EngineError(failure);
    }
    const auto writes = pending_.take();
    auto rows = log_.take();
    if (writes.empty() && rows.empty()) {
        open.turn.commit();
        return;
    }
    std::vector<Step> steps;
    for (const auto& write : writes) {
        steps.push_back(write.step);
    }
    for (const auto& write : rows) {
        steps.push_back(write.step);
    }
    OdbcTurn::Ending ending;
    try {
        ending = open.turn.write_and_commit(steps);
    } catch (const LinkLost&) {
        log_.put_back(std::move(rows));
        throw;
    }
    if (!ending.failure) {
        waiting_told_ = false;
        return;
    }
    if (ending.done < writes.size() || ending.done == steps.size()) {
        log_.put_back(std::move(rows));
        abandon_turn();
        throw to_error(*ending.failure);
    }
    const auto written = static_cast<std::ptrdiff_t>(ending.done - writes.size());
    rows.erase(rows.begin(), rows.begin() + written);
    write_log_slowly(open, std::move(rows));
    open.turn.commit();
}

/// Row by row where rows fail together, so that only those at fault are given up. What may succeed later
/// waits on.
void OdbcConnection::write_log_slowly(Session& open, std::vector<PendingWrites::Write> rows)
{
    while (!rows.empty()) {
        auto& write = rows.front();
        try {
            open.turn.write(write.step);
            waiting_told_ = false;
        } catch (const LinkLost&) {
            log_.put_back(std::move(rows));
            throw;
        } catch (const OdbcFailure& failure) {
            note_log_failure(failure);
            if (failure.passing) {
                log_.put_back(std::move(rows));
                return;
            }
            if (write.step.rows.size() > 1) {
                std::vector<PendingWrites::Write> single;
                for (auto& row : write.step.rows) {
                    single.push_back({write.table, {write.step.sql, {std::move(row)}, {}}, {}, {}});
                }
                write_log_slowly(open, std::move(single));
            }
        }
        rows.erase(rows.begin());
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
