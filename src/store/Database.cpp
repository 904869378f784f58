#include "store/Database.h"

#include "base/Guarded.h"
#include "base/Secrets.h"
#include "base/Text.h"
#include "store/CarefulConnection.h"
#include "store/Statements.h"

namespace qz::store {

namespace {

/// The setting's value; when it is empty, the default, which is then stored through `set`.
std::string setting_or(
    std::string value, const std::string& fallback, const std::function<void(const std::string&)>& set)
{
    if (value.empty()) {
        set(fallback);
        return fallback;
    }
    return value;
}

/// A connection-string value; braces keep a password with a separator in one piece.
std::string connection_value(const std::string& value)
{
    if (value.find_first_of(";{}") == std::string::npos) {
        return value;
    }
    return "{" + replace_all(value, "}", "}}") + "}";
}

} // namespace

Database::Database(ConnectionFactory create_connection, config::Settings& settings,
    const config::Deployment& deployment, Journal& journal)
    : create_connection_(std::move(create_connection)), settings_(settings), deployment_(deployment),
      journal_(journal)
{
}

void Database::LoadDatabaseSettings()
{
    user_name_ = setting_or(
        settings_.get_DBUserName(), "sa", [&](const auto& text) { settings_.set_DBUserName(text); });
    password_ = settings_.get_DBPassword();
    server_ip_ = setting_or(
        settings_.get_DBServerIP(), "127.0.0.1", [&](const auto& text) { settings_.set_DBServerIP(text); });
    odbc_name_ =
        setting_or(settings_.get_DBODBC(), "VELTO", [&](const auto& text) { settings_.set_DBODBC(text); });
}

void Database::BuildConnectionString()
{
    guarded(journal_, "BuildConnectionString", no_address, [&] {
        LoadDatabaseSettings();
        connection_string_ = connection_string(connection_value(password_));
        if (connection().State() == platform::ConnectionState::Closed) {
            connection_ = make_connection();
            OpendbConnection();
        }
    });
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
        connection().Open(connection_string_);
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
    const bool works = attempt([&] { open(statements::kProbe).RecordCount(); });
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
        connection_ = make_connection();
    }
    return *connection_;
}

std::unique_ptr<platform::Connection> Database::make_connection()
{
    return std::make_unique<CarefulConnection>(create_connection_(), troubled_);
}

void Database::execute(const platform::Statement& statement, std::initializer_list<std::string_view> values)
{
    connection().perform(statement, values);
}

platform::Recordset Database::open(
    const platform::Statement& statement, std::initializer_list<std::string_view> values)
{
    platform::Recordset recordset(connection());
    recordset.Open(platform::fill(statement, values));
    return recordset;
}

void Database::turn_ended()
{
    if (outcome_ != nullptr) {
        outcome_->turn_ending();
    }
    const bool stored = store_turn();
    whole_ = false;
    troubled_ = false;
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
    if (failed_ || (whole_ && troubled_)) {
        if (is_open) {
            connection_->abandon_turn();
        }
        return false;
    }
    if (!connection_) {
        return true;
    }
    try {
        connection_->end_turn();
        return true;
    } catch (...) { // not guarded(): a report would write into the log, which is what just failed
        journal_.raise_error("EndOfTurn", current_error(), no_address);
        if (whole_) {
            connection_->abandon_turn();
        }
        return false;
    }
}

} // namespace qz::store
