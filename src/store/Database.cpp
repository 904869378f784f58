#include "store/Database.h"

#include "base/Guarded.h"
#include "base/Secrets.h"
#include "base/Text.h"
#include "store/CarefulConnection.h"
#include "store/Statements.h"

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
            connection_ = make_connection();
            OpendbConnection();
        }
        store_defaults();
    });
}

std::optional<std::string> Database::an_encoded_password()
{
    constexpr std::size_t kPage = 500;
    auto& tables = connection().maintenance();
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
