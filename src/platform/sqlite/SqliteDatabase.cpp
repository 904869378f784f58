#include "platform/sqlite/SqliteDatabase.h"

#include <array>
#include <optional>
#include <string_view>

#include <sqlite3.h>
#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace qz::platform {

namespace {

using Now = std::chrono::steady_clock;

constexpr std::string_view kMemory = ":memory:";

std::string utf8(const std::filesystem::path& path)
{
    const auto text = path.u8string();
    return {text.begin(), text.end()};
}

EngineError unusable(const std::string& name, std::string_view why)
{
    return database_error(DatabaseError::Unspecified, "The database file " + name + " " + std::string(why));
}

/// @return whether there is a file.
bool is_there(const std::filesystem::path& file, const std::string& name)
{
    std::error_code error; // a path that cannot be looked at cannot be opened either, which reports it
    const auto status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status)) {
        return false;
    }
    if (std::filesystem::is_directory(status)) {
        throw unusable(name, "is a folder; it was left untouched");
    }
    if (!std::filesystem::is_regular_file(status)) {
        throw unusable(name, "is not a plain file; it was left untouched");
    }
    return true;
}

/// Whether a log stands beside the database whose changes are not in it yet.
bool has_log(const std::string& name)
{
    std::error_code error;
    const auto size = std::filesystem::file_size(name + "-wal", error);
    return !error && size > 0;
}

/// As long as it lives, the process makes files that strangers cannot open: whoever may read the database
/// reads every account.
class ClosedToStrangers {
public:
    ClosedToStrangers() = default;
    ClosedToStrangers(const ClosedToStrangers&) = delete;
    ClosedToStrangers& operator=(const ClosedToStrangers&) = delete;
#ifdef _WIN32
    ~ClosedToStrangers() = default;
#else
    ~ClosedToStrangers()
    {
        umask(before_);
    }

private:
    mode_t before_ = umask(S_IWGRP | S_IRWXO); // of the library's 0644, 0640 is left
#endif
};

/// What is wrong, and what somebody can do about it.
std::string_view advice(int primary_code)
{
    switch (primary_code) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return "is locked by another program; end that program or its transaction";
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return "is damaged; stop the server and restore the file from a backup";
    case SQLITE_CANTOPEN:
        return "cannot be opened; check that its folder exists and that this user may write in it";
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return "is read-only; give this user write access to it and to its folder";
    case SQLITE_FULL:
        return "cannot grow; free some space on its disk";
    case SQLITE_IOERR:
        return "could not be read or written; check its disk and the free space on it";
    default:
        return "reports a failure";
    }
}

/// Before the library's first use in the process; later it changes nothing.
void set_up_library()
{
    // Counting its memory takes a lock with every allocation, and nobody asks for the count.
    [[maybe_unused]] static const int code = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
}

} // namespace

SqliteDatabase::SqliteDatabase(const std::filesystem::path& file, IfMissing if_missing, Access access)
{
    set_up_library();
    if (file == kMemory) {
        name_ = kMemory;
        open(false, access);
    } else if (file.empty()) {
        throw database_error(DatabaseError::Unspecified, "No database file is named");
    } else {
        // An absolute path is never taken for one of the library's special names.
        const auto absolute = std::filesystem::absolute(file);
        name_ = utf8(absolute);
        const bool there = is_there(absolute, name_);
        if (!there && if_missing == IfMissing::Fail) {
            throw unusable(name_, "is not there");
        }
        open(!there, access);
        require_database();
    }
    if (access == Access::ReadWrite && sqlite3_db_readonly(handle(), "main") == 1) {
        throw error(SQLITE_READONLY);
    }
    sqlite3_extended_result_codes(handle(), 1);
    sqlite3_db_config(handle(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(handle(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    // "x" is a name and never a text: a missing column must not turn into its own name as a value.
    sqlite3_db_config(handle(), SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
}

void SqliteDatabase::open(bool create, Access access)
{
    const std::optional<ClosedToStrangers> closed(
        create ? std::make_optional<ClosedToStrangers>() : std::nullopt);
    sqlite3* handle = nullptr;
    // Who may not write cannot remove the files either that reading makes beside the database. Closing it as
    // the last one does both, and there is nothing to write where there is no log.
    const bool read_only = access == Access::Read && has_log(name_);
    const int flags = SQLITE_OPEN_NOMUTEX | (read_only ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE)
        | (create ? SQLITE_OPEN_CREATE : 0);
    const int code = sqlite3_open_v2(name_.c_str(), &handle, flags, nullptr);
    handle_.reset(handle); // also after a failure
    if ((code & 0xFF) == SQLITE_CANTOPEN) {
        throw unusable(name_,
            create ? "cannot be created; check that its folder exists and that this user may write in it"
                   : "cannot be read; give this user access to it");
    }
    if (code != SQLITE_OK) {
        throw error(code);
    }
    if (access == Access::Read) {
        run("PRAGMA query_only=1");
    }
}

/// Refuses what is no database before anything is written. Looks through the library's own descriptor.
void SqliteDatabase::require_database() const
{
    constexpr std::string_view kMagic{"SQLite format 3\0", 16};
    std::array<char, kMagic.size()> head{};
    sqlite3_file* file = nullptr;
    sqlite3_int64 size = 0;
    sqlite3_file_control(handle(), "main", SQLITE_FCNTL_FILE_POINTER, &file);
    int code = file->pMethods->xFileSize(file, &size);
    if (code == SQLITE_OK && size == 0) {
        return; // an empty file is an empty database
    }
    code = code == SQLITE_OK ? file->pMethods->xRead(file, head.data(), head.size(), 0) : code;
    if (code != SQLITE_OK && code != SQLITE_IOERR_SHORT_READ) {
        throw error(code);
    }
    if (code != SQLITE_OK || std::string_view(head.data(), head.size()) != kMagic) {
        throw unusable(name_, "is not a database; it was left untouched. Move it away or name another file");
    }
}

void SqliteDatabase::Closer::operator()(sqlite3* handle) const
{
    sqlite3_close_v2(handle);
}

// NOLINTNEXTLINE(readability-make-member-function-const): it changes what the handle stands for
void SqliteDatabase::run(const std::string& sql)
{
    const auto start = trace_ ? Now::now() : Now::time_point();
    const int code = sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr);
    if (trace_) {
        trace_->ran({.sql = sql,
            .time = Now::now() - start,
            .error = code == SQLITE_OK ? std::string() : error(code).description()});
    }
    if (code != SQLITE_OK) {
        throw error(code);
    }
}

Value SqliteDatabase::read(const std::string& sql)
{
    return SqliteStatement(*this, sql).read();
}

bool SqliteDatabase::in_transaction() const
{
    return sqlite3_get_autocommit(handle()) == 0;
}

// NOLINTNEXTLINE(readability-make-member-function-const): it changes what the handle stands for
void SqliteDatabase::wait_for_locks(std::chrono::milliseconds time)
{
    sqlite3_busy_timeout(handle(), static_cast<int>(time.count()));
}

std::int64_t SqliteDatabase::changed_rows() const
{
    return sqlite3_changes64(handle());
}

std::int64_t SqliteDatabase::last_key() const
{
    return sqlite3_last_insert_rowid(handle());
}

EngineError SqliteDatabase::error(int code) const
{
    const std::string message =
        sqlite3_errcode(handle()) == SQLITE_OK ? sqlite3_errstr(code) : sqlite3_errmsg(handle());
    const int primary = code & 0xFF;
    if (primary == SQLITE_CONSTRAINT) {
        return database_error(DatabaseError::Constraint, message);
    }
    if (message.starts_with("no such table")) {
        return database_error(DatabaseError::MissingTable, message);
    }
    if (primary == SQLITE_ERROR || primary == SQLITE_MISMATCH) {
        return database_error(DatabaseError::Syntax, message);
    }
    return unusable(name_, std::string(advice(primary)) + " (" + message + ")");
}

SqliteStatement::SqliteStatement(SqliteDatabase& database, std::string_view sql, const Rows& rows)
    : database_(database)
{
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(database.handle(), sql.data(), static_cast<int>(sql.size()),
        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    statement_.reset(statement);
    if (auto* trace = database.trace()) {
        if (code != SQLITE_OK) {
            trace->ran({.sql = rows.sql, .rows = rows.count, .error = database.error(code).description()});
        } else {
            traced_ = std::make_unique<SqliteTracedRun>(*trace, rows.sql, rows.count, parameter_count());
        }
    }
    check(code);
}

void SqliteStatement::Finalizer::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

void SqliteStatement::bind(int parameter, const Value& value)
{
    if (traced_) {
        traced_->bind(parameter, value);
    }
    const auto& held = value.held();
    if (const auto* text = std::get_if<std::string>(&held)) {
        bind(parameter, std::string_view(*text));
    } else if (const auto* whole = std::get_if<std::int64_t>(&held)) {
        check(sqlite3_bind_int64(statement_.get(), parameter, *whole));
    } else if (const auto* real = std::get_if<double>(&held)) {
        check(sqlite3_bind_double(statement_.get(), parameter, *real));
    } else if (const auto* date = std::get_if<DateTime>(&held)) {
        bind_copy(parameter, date->text());
    } else {
        check(sqlite3_bind_null(statement_.get(), parameter));
    }
}

void SqliteStatement::bind(int parameter, std::string_view text)
{
    if (traced_) {
        traced_->bind(parameter, Value(std::string(text)));
    }
    check(sqlite3_bind_text64(
        statement_.get(), parameter, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

void SqliteStatement::bind(std::span<const Value> values)
{
    int parameter = 0;
    for (const auto& value : values) {
        bind(++parameter, value);
    }
}

void SqliteStatement::bind_copy(int parameter, const std::string& text)
{
    check(sqlite3_bind_text64(
        statement_.get(), parameter, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

int SqliteStatement::step()
{
    return traced_ ? traced_step() : sqlite3_step(statement_.get());
}

int SqliteStatement::traced_step()
{
    const auto start = Now::now();
    const int code = sqlite3_step(statement_.get());
    traced_->add(Now::now() - start);
    if (code == SQLITE_DONE) {
        traced_->end({});
    } else if (code != SQLITE_ROW) {
        traced_->end(database_.error(code).description());
    }
    return code;
}

void SqliteStatement::run()
{
    const SqliteRun end(*this);
    const int code = step();
    if (code != SQLITE_DONE) {
        throw database_.error(code);
    }
}

Value SqliteStatement::read()
{
    const SqliteRun end(*this);
    const int code = step();
    if (code != SQLITE_ROW) {
        throw database_.error(code);
    }
    return column(0);
}

void SqliteStatement::reset()
{
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
    if (traced_) {
        traced_->end({});
        traced_->forget_values();
    }
}

std::size_t SqliteStatement::parameter_count() const
{
    return static_cast<std::size_t>(sqlite3_bind_parameter_count(statement_.get()));
}

std::vector<std::string> SqliteStatement::columns() const
{
    std::vector<std::string> names;
    const int count = sqlite3_column_count(statement_.get());
    names.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const char* name = sqlite3_column_name(statement_.get(), i);
        names.emplace_back(name == nullptr ? "" : name);
    }
    return names;
}

Value SqliteStatement::column(std::size_t position) const
{
    auto* statement = statement_.get();
    const int i = static_cast<int>(position);
    switch (sqlite3_column_type(statement, i)) {
    case SQLITE_NULL:
        return {};
    case SQLITE_INTEGER:
        return {static_cast<std::int64_t>(sqlite3_column_int64(statement, i))};
    case SQLITE_FLOAT:
        return {sqlite3_column_double(statement, i)};
    default: {
        const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, i));
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, i));
        return bytes == nullptr ? Value{std::string{}} : Value{std::string(bytes, size)};
    }
    }
}

std::vector<Value> SqliteStatement::row() const
{
    const auto count = static_cast<std::size_t>(sqlite3_column_count(statement_.get()));
    std::vector<Value> values;
    values.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        values.push_back(column(i));
    }
    return values;
}

void SqliteStatement::check(int code) const
{
    if (code != SQLITE_OK) {
        throw database_.error(code);
    }
}

} // namespace qz::platform
