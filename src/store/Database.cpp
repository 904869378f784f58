#include "store/Database.h"

#include "base/Guarded.h"
#include "base/Secrets.h"
#include "base/Text.h"
#include "store/Statements.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <limits>

namespace qz::store {

namespace {

constexpr const char* kDefaultUser = "sa";
constexpr const char* kDefaultServer = "127.0.0.1";
constexpr const char* kDefaultSource = "VELTO";

std::string value_or(std::string value, const char* fallback)
{
    return value.empty() ? std::string(fallback) : value;
}

/// A connection-string value; braces keep a password with a separator in one piece.
std::string connection_value(const std::string& value)
{
    if (value.find_first_of(";{}") == std::string::npos) {
        return value;
    }
    return "{" + replace_all(value, "}", "}}") + "}";
}

/// The values that are bound to a statement's parameters.
class Bound {
public:
    Bound(const platform::Statement& statement, std::span<Parameter> given) : count_(given.size())
    {
        assert(count_ <= values_.size());
        std::transform(given.begin(), given.end(), values_.begin(),
            [&](Parameter& each) { return each.take_value(statement); });
    }
    operator platform::Parameters() const { return {values_.data(), count_}; }

private:
    static constexpr std::size_t kMost = 5; // that a statement has
    std::array<platform::Value, kMost> values_;
    std::size_t count_;
};

} // namespace

Database::Database(ConnectionFactory create_connection, config::Settings& settings,
    const config::Deployment& deployment, Journal& journal)
    : create_connection_(std::move(create_connection)), settings_(settings), deployment_(deployment),
      journal_(journal)
{
}

void Database::LoadDatabaseSettings()
{
    user_name_ = value_or(settings_.get_DBUserName(), kDefaultUser);
    password_ = settings_.get_DBPassword();
    server_ip_ = value_or(settings_.get_DBServerIP(), kDefaultServer);
    odbc_name_ = value_or(settings_.get_DBODBC(), kDefaultSource);
}

/// After the database was opened: the first encoded text makes the key, which must not happen where the
/// accounts of this database are encoded with one that is missing.
void Database::store_defaults()
{
    if (settings_.knows_DBUserName() && settings_.get_DBUserName().empty()) {
        settings_.set_DBUserName(kDefaultUser);
    }
    if (settings_.knows_DBServerIP() && settings_.get_DBServerIP().empty()) {
        settings_.set_DBServerIP(kDefaultServer);
    }
    if (settings_.get_DBODBC().empty()) {
        settings_.set_DBODBC(kDefaultSource);
    }
}

void Database::BuildConnectionString()
{
    guarded(journal_, "BuildConnectionString", no_address, [&] {
        LoadDatabaseSettings();
        connection_string_ = connection_string(connection_value(password_));
        if (connection().State() == platform::ConnectionState::Closed) {
            connection_ = create_connection_();
            OpendbConnection();
        }
        store_defaults();
    });
}

std::optional<std::string> Database::an_encoded_password()
{
    constexpr std::size_t kPage = 500;
    auto& tables = maintenance();
    std::int64_t after = std::numeric_limits<std::int64_t>::min();
    for (;;) {
        const auto page = tables.read_rows(tables::kUsers, after, kPage);
        for (const auto& row : page.rows) {
            for (std::size_t i = 0; i < row.size(); ++i) {
                if (equal_ignoring_case(page.columns[i], "Password")
                    && row[i].text().starts_with(helpers::SettingsCipher::Marker)) {
                    return row[i].text();
                }
                if (equal_ignoring_case(page.columns[i], tables::kUsers.key)) {
                    after = static_cast<std::int64_t>(row[i].number());
                }
            }
        }
        if (page.rows.size() < kPage) {
            return std::nullopt;
        }
    }
}

/// The server's address stands unbraced: "127.0.0.1;Port=5432" names another port.
std::string Database::connection_string(const std::string& password) const
{
    return "Driver={SQL Server};Server=" + server_ip_ + ";Database=VELTO;uid=" + connection_value(user_name_)
        + ";pwd=" + password + ";";
}

void Database::OpendbConnection()
{
    try {
        noting_failure([&] { connection().Open(connection_string_); });
        journal_.log_own(ConnectionTest() == get_ConnectionOK() ? "Database connection OK"
                                                                : "Database connection failed!");
    } catch (...) { // not guarded(): the failure is logged as well as reported
        const auto error = hides_passwords() ? without_password(current_error(), password_) : current_error();
        journal_.log_own("Error opening database connection: " + error.description());
        journal_.ReportError("opendbConnection: ", error, no_address);
    }
}

void Database::ClosedbConnection()
{
    attempt([&] { connection().Close(); });
}

std::string Database::ConnectionTest()
{
    const bool works = attempt([&] { query(statements::kProbe); });
    if (works) {
        return get_ConnectionOK();
    }
    const auto state = attempt([&] { connection(); }) ? static_cast<int>(connection().State()) : 0;
    const auto shown =
        hides_passwords() ? connection_string(std::string(kHiddenPassword)) : connection_string_;
    return "Connection string: " + shown + "\r\nConnection state: " + std::to_string(state)
        + "\r\nconfiguration file: " + settings_.get_ConfigurationFile();
}

platform::Connection& Database::connection()
{
    if (!connection_) {
        connection_ = create_connection_();
    }
    return *connection_;
}

platform::Connection& Database::open_connection()
{
    auto& connection = this->connection();
    if (connection.State() == platform::ConnectionState::Closed) {
        throw database_error(DatabaseError::NoConnection,
            "The connection cannot be used to perform this operation. "
            "It is either closed or invalid in this context.");
    }
    return connection;
}

/// Notes failures of the database, which may be over the next time, as opposed to failures of what was asked:
/// most are trapped and reported where they happen, yet a turn that has to be stored as a whole must know of
/// each.
template <typename Work> std::invoke_result_t<Work> Database::noting_failure(Work work)
{
    constexpr std::array kOfDatabase{DatabaseError::Unspecified, DatabaseError::Timeout,
        DatabaseError::LogonFailed, DatabaseError::ConnectionClosed, DatabaseError::NoConnection};
    try {
        return work();
    } catch (const EngineError& failure) {
        failed_statement_ = failed_statement_
            || std::any_of(kOfDatabase.begin(), kOfDatabase.end(),
                [&](DatabaseError each) { return failure.number() == number_of(each); });
        throw;
    }
}

Rows Database::query_with(const platform::Statement& statement, std::span<Parameter> given)
{
    return noting_failure([&] {
        auto& connection = open_connection(); // before the values are looked at
        return Rows(statement, connection.query(statement, Bound(statement, given)));
    });
}

void Database::visit_with(
    const platform::Statement& statement, std::span<Parameter> given, const platform::RowVisitor& visitor)
{
    noting_failure([&] { connection().visit(statement, Bound(statement, given), visitor); });
}

bool Database::finds_with(const platform::Statement& statement, std::span<Parameter> given)
{
    return noting_failure([&] { return connection().finds(statement, Bound(statement, given)); });
}

void Database::run_with(const platform::Statement& statement, std::span<Parameter> given)
{
    noting_failure([&] { connection().run(statement, Bound(statement, given)); });
}

std::int64_t Database::insert(const platform::Table& table, const platform::RowChange& row)
{
    return noting_failure([&] { return open_connection().insert_row(table, row); });
}

std::int64_t Database::add(const platform::Table& table, const platform::RowChange& row)
{
    return noting_failure([&] { return connection().add_row(table, row); });
}

void Database::update(const platform::Table& table, std::int64_t key, const platform::RowChange& row)
{
    noting_failure([&] { connection().update_row(table, key, row); });
}

void Database::remove(const platform::Table& table, std::int64_t key)
{
    noting_failure([&] { connection().delete_row(table, key); });
}

std::uint64_t Database::change_mark(const platform::Table& table)
{
    return noting_failure([&] { return connection().change_mark(table); });
}

std::uint64_t Database::own_changes(const platform::Table& table)
{
    return connection().own_changes(table);
}

bool Database::is_open()
{
    return connection().State() == platform::ConnectionState::Open;
}

void Database::require_open()
{
    noting_failure([&] { open_connection(); });
}

std::string Database::description()
{
    return connection().description();
}

platform::Maintenance& Database::maintenance()
{
    return connection().maintenance();
}

void Database::turn_ended()
{
    if (outcome_ != nullptr) {
        outcome_->turn_ending();
    }
    const bool stored = store_turn();
    whole_ = false;
    failed_statement_ = false;
    failed_ = false;
    if (outcome_ != nullptr) {
        stored ? outcome_->turn_stored() : outcome_->turn_lost();
    }
    if (connection_) {
        for (const auto& notice : connection_->take_notices()) {
            journal_.log_own(notice);
        }
    }
}

/// @return false when nothing of the turn is stored.
bool Database::store_turn()
{
    const bool is_open = connection_ && connection_->State() != platform::ConnectionState::Closed;
    if (failed_ || (whole_ && failed_statement_)) {
        if (is_open) {
            connection_->rollback();
        }
        return false;
    }
    if (!connection_) {
        return true;
    }
    try {
        connection_->commit();
        return true;
    } catch (...) { // not guarded(): a report would write into the log, which is what just failed
        journal_.raise_error("EndOfTurn", current_error(), no_address);
        if (whole_) {
            connection_->rollback();
        }
        return false;
    }
}

} // namespace qz::store
