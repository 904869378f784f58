#include "platform/sqlite/SqliteConnection.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "platform/database/Dialect.h"
#include "platform/sqlite/SqliteFunctions.h"
#include "platform/sqlite/SqliteProvider.h"
#include "platform/sqlite/SqliteSchema.h"

#include <algorithm>
#include <atomic>
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

/// Ends a statement's run on every way out, so that it holds no lock and no value of its caller.
class Run {
public:
    explicit Run(SqliteStatement& statement) : statement_(statement) { }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    ~Run() { statement_.reset(); }

private:
    SqliteStatement& statement_;
};

EngineError row_gone()
{
    return database_error(DatabaseError::RowGone,
        "Row cannot be located for updating. Some values may have been changed since it was last read.");
}

void set_up(SqliteDatabase& database, Durability durability)
{
    // With the write-ahead log, readers and one writer do not wait for each other, and what is committed has
    // left this process: only a power loss can take the last turns back, and never the file's integrity.
    database.run("PRAGMA journal_mode=WAL");
    database.run(durability == Durability::Power ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
    // A log of 16 MB (4,000 pages) before it is copied back: pages that several turns change are copied once.
    database.run("PRAGMA wal_autocheckpoint=4000; PRAGMA journal_size_limit=67108864");
    database.run("PRAGMA cache_size=-16000; PRAGMA temp_store=MEMORY");
}

std::set<std::string> columns_of(SqliteDatabase& database)
{
    SqliteStatement statement(database,
        "SELECT lower(t.name || '.' || c.name) FROM sqlite_master AS t, pragma_table_info(t.name) AS c "
        "WHERE t.type = 'table'");
    std::set<std::string> columns;
    int code = statement.step();
    for (; code == SQLITE_ROW; code = statement.step()) {
        columns.insert(statement.column(0).text());
    }
    if (code != SQLITE_DONE) {
        throw database.error(code);
    }
    return columns;
}

EngineError no_such_column(std::string_view table, std::string_view column)
{
    return database_error(
        DatabaseError::Syntax, "no such column: " + std::string(table) + "." + std::string(column));
}

/// A name for the text of an edit. Different names always give different texts.
std::string bracketed(std::string_view name)
{
    if (name.find(']') != std::string_view::npos) {
        throw no_such_column("", name);
    }
    return "[" + std::string(name) + "]";
}

/// @param columns  "table.column" in lower case.
void require_column(const std::set<std::string>& columns, const Table& table, std::string_view column)
{
    const auto prefix = lower(table.name) + ".";
    const auto in_table = columns.lower_bound(prefix);
    if (in_table == columns.end() || !in_table->starts_with(prefix)) {
        throw database_error(DatabaseError::MissingTable, "no such table: " + std::string(table.name));
    }
    if (!columns.contains(prefix + lower(column))) {
        throw no_such_column(table.name, column);
    }
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
    result.keys.reserve(result.rows.size());
    for (auto& row : result.rows) {
        result.keys.push_back(std::get<std::int64_t>(row[position].held()));
        if (hidden) {
            row.pop_back();
        }
    }
    if (hidden) {
        result.columns.pop_back();
    }
}

} // namespace

std::unique_ptr<Connection> make_sqlite_connection(const ConnectionOptions& options, const Clock& clock)
{
    return std::make_unique<SqliteConnection>(options, clock);
}

SqliteConnection::SqliteConnection(const ConnectionOptions& options, const Clock& clock)
    : file_(options.database_file), durability_(options.durability), clock_(clock),
      catalogue_(options.statements), common_changes_(first_mark())
{
}

void SqliteConnection::Open(const std::string& /*connection_string*/)
{
    if (session_) {
        throw database_error(DatabaseError::Unspecified, "The connection is already open");
    }
    auto opening = std::make_unique<Session>(file_);
    auto& database = opening->database;
    database.wait_for_locks(kLockPatience);
    check_schema_version(database); // before anything is written
    register_functions(database.handle(), clock_);
    set_up(database, durability_);
    upgrade_schema(database);
    opening->columns = columns_of(database);
    opening->prepared.resize(catalogue_.size());
    opening->begin = std::make_unique<SqliteStatement>(database, "BEGIN IMMEDIATE");
    opening->commit = std::make_unique<SqliteStatement>(database, "COMMIT");
    opening->data_version = std::make_unique<SqliteStatement>(database, "PRAGMA data_version");
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
    end_turn();
}

ConnectionState SqliteConnection::State() const
{
    return session_ ? ConnectionState::Open : ConnectionState::Closed;
}

void SqliteConnection::Execute(const std::string& sql)
{
    query(sql);
}

ResultSet SqliteConnection::query(const std::string& sql)
{
    auto& open = session();
    const auto match = catalogue_.look_up(sql);
    auto& prepared = prepare(open, *match.shape);
    const Run end(prepared.statement);
    for (std::size_t i = 0; i < prepared.holes.size(); ++i) {
        prepared.statement.bind(static_cast<int>(i) + 1, match.values[prepared.holes[i]]);
    }
    auto result = run(open, prepared.statement, match.shape->statement.table);
    take_keys(result, match.shape->statement.table, prepared.hidden_key);
    return result;
}

ResultSet SqliteConnection::describe(const std::string& sql)
{
    auto& open = session();
    const auto match = catalogue_.look_up(sql);
    const auto& prepared = prepare(open, *match.shape);
    ResultSet result;
    result.columns = prepared.statement.columns();
    take_keys(result, match.shape->statement.table, prepared.hidden_key);
    return result;
}

std::int64_t SqliteConnection::insert_row(const Table& table, const RowChange& row)
{
    std::string sql = "INSERT INTO " + bracketed(table.name);
    if (row.columns.empty()) {
        sql += " DEFAULT VALUES";
    } else {
        std::string columns;
        std::string values;
        for (const auto& column : row.columns) {
            columns += (columns.empty() ? "" : ", ") + bracketed(column);
            values += values.empty() ? "?" : ", ?";
        }
        sql += " (" + columns + ") VALUES (" + values + ")";
    }
    run_edit(sql, table, row);
    return session().database.last_key();
}

void SqliteConnection::update_row(const Table& table, std::int64_t key, const RowChange& row)
{
    std::string settings;
    for (const auto& column : row.columns) {
        settings += (settings.empty() ? "" : ", ") + bracketed(column) + " = ?";
    }
    if (run_edit("UPDATE " + bracketed(table.name) + " SET " + settings + " WHERE " + bracketed(table.key)
                + " = ?",
            table, row, key)
        == 0) {
        throw row_gone();
    }
}

void SqliteConnection::delete_row(const Table& table, std::int64_t key)
{
    if (run_edit("DELETE FROM " + bracketed(table.name) + " WHERE " + bracketed(table.key) + " = ?", table,
            {}, key)
        == 0) {
        throw row_gone();
    }
}

void SqliteConnection::end_turn()
{
    if (!session_) {
        return;
    }
    auto& open = *session_;
    if (open.turn_lost) {
        abandon_turn(); // a turn whose first half is gone is not stored by half
        throw database_error(DatabaseError::Unspecified,
            "Changes made before a failure were lost in the database file " + open.database.name());
    }
    open.changed = false;
    if (std::exchange(open.in_turn, false)) {
        const Run end(*open.commit);
        const int code = open.commit->step();
        if (code != SQLITE_DONE) {
            const auto failure = open.database.error(code);
            abandon_turn();
            throw EngineError(failure);
        }
    }
}

void SqliteConnection::abandon_turn()
{
    if (!session_) {
        return;
    }
    auto& open = *session_;
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
    const Run end(*open.data_version);
    const int code = open.data_version->step();
    if (code != SQLITE_ROW) {
        fail(open, code);
    }
    const auto version = std::get<std::int64_t>(open.data_version->column(0).held());
    if (version != open.last_version) {
        open.last_version = version;
        ++common_changes_;
    }
    // Neither part ever goes back, so their sum stays the same only while both do.
    const auto own = own_changes_.find(table.name);
    return common_changes_ + (own == own_changes_.end() ? 0 : own->second);
}

std::string SqliteConnection::description() const
{
    return std::string("SQLite ") + sqlite3_libversion() + ", "
        + (session_ ? session_->database.name() : file_.string() + " (closed)");
}

SqliteConnection::Session& SqliteConnection::session()
{
    if (!session_) {
        throw database_error(
            DatabaseError::ConnectionClosed, "Operation is not allowed when the object is closed.");
    }
    return *session_;
}

SqliteConnection::Prepared& SqliteConnection::prepare(Session& open, const Shape& shape)
{
    auto& prepared = open.prepared[shape.number];
    if (!prepared) {
        auto translation = translate(shape.statement, kSqliteDialect);
        prepared = std::make_unique<Prepared>(Prepared{SqliteStatement(open.database, translation.sql),
            std::move(translation.holes), translation.hidden_key});
    }
    return *prepared;
}

SqliteStatement& SqliteConnection::edit(
    Session& open, const std::string& sql, const Table& table, const RowChange& row)
{
    const auto known = open.edits.find(sql);
    if (known != open.edits.end()) {
        return *known->second;
    }
    require_column(open.columns, table, table.key);
    for (const auto& column : row.columns) {
        require_column(open.columns, table, column);
    }
    auto statement = std::make_unique<SqliteStatement>(open.database, sql);
    return *open.edits.emplace(sql, std::move(statement)).first->second;
}

void SqliteConnection::begin_turn(Session& open)
{
    if (open.in_turn) {
        return;
    }
    // Who has waited in vain does not wait again until the lock is free: a program that holds it for long
    // would otherwise stop the engine for seconds with each of its writes.
    open.database.wait_for_locks(open.locked_out ? 0s : kLockPatience);
    const Run end(*open.begin);
    const int code = open.begin->step();
    open.locked_out = (code & 0xFF) == SQLITE_BUSY;
    if (code != SQLITE_DONE) {
        throw open.database.error(code);
    }
    open.in_turn = true;
}

ResultSet SqliteConnection::run(Session& open, SqliteStatement& statement, const Table* table)
{
    const bool writes = !statement.read_only();
    if (writes) {
        begin_turn(open);
    }
    ResultSet result;
    int code = statement.step();
    result.columns = statement.columns(); // only now: the first step notices columns that were added
    for (; code == SQLITE_ROW; code = statement.step()) {
        auto& row = result.rows.emplace_back();
        row.reserve(result.columns.size());
        for (std::size_t i = 0; i < result.columns.size(); ++i) {
            row.push_back(statement.column(i));
        }
    }
    if (code != SQLITE_DONE) {
        fail(open, code);
    }
    if (writes && open.database.changed_rows() > 0) {
        open.changed = true;
        if (table != nullptr) {
            own_changes_.try_emplace(std::string(table->name), 0).first->second++;
        }
    }
    return result;
}

std::int64_t SqliteConnection::run_edit(
    const std::string& sql, const Table& table, const RowChange& row, std::optional<std::int64_t> key)
{
    auto& open = session();
    auto& statement = edit(open, sql, table, row);
    const Run end(statement);
    int parameter = 0;
    for (const auto& value : row.values) {
        statement.bind(++parameter, value);
    }
    if (key) {
        statement.bind(++parameter, Value(*key));
    }
    run(open, statement, &table);
    return open.database.changed_rows();
}

void SqliteConnection::fail(Session& open, int code)
{
    const auto failure = open.database.error(code);
    if (!open.in_turn || open.database.in_transaction()) {
        throw EngineError(failure); // only this statement failed
    }
    open.in_turn = false;
    open.turn_lost = open.turn_lost || std::exchange(open.changed, false);
    ++common_changes_;
    throw database_error(DatabaseError::Unspecified,
        failure.description() + "; what was changed before it in the same turn is lost");
}

} // namespace qz::platform
