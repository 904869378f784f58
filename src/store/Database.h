// The engine's one database connection: how it is described, opened, tested and closed, and the end of a
// turn.
#pragma once

#include "base/Journal.h"
#include "config/Settings.h"
#include "platform/EventLoop.h"
#include "platform/database/Connection.h"
#include "platform/database/Recordset.h"

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace qz::store {

class Database final : public platform::TurnListener {
public:
    using ConnectionFactory = std::function<std::unique_ptr<platform::Connection>()>;

    /// @param create_connection  makes a closed connection of the provider that the settings name at that
    /// moment.
    Database(ConnectionFactory create_connection, config::Settings& settings, Journal& journal);

    /// Reads the four database settings and stores the default of each that is empty.
    void LoadDatabaseSettings();
    /// Makes the connection string anew, and opens the connection if it is closed.
    void BuildConnectionString();
    /// Opens the connection and logs whether a probe query works. Errors are logged and reported under
    /// "opendbConnection: ".
    void OpendbConnection();
    /// Closes the connection; errors are ignored.
    void ClosedbConnection();
    /// "Connection OK", or three lines that tell what was tried. They hold the database password.
    std::string ConnectionTest();
    static std::string get_ConnectionOK() { return "Connection OK"; }

    /// The connection, open or not.
    platform::Connection& connection();
    /// Runs a statement without a result.
    void execute(const platform::Statement& statement, std::initializer_list<std::string_view> values = {});
    /// Opens a recordset: static, optimistic, on a command text.
    platform::Recordset open(
        const platform::Statement& statement, std::initializer_list<std::string_view> values = {});

    /// Commits what this turn of the loop changed. A failure raises Error only: the log could not take it
    /// either.
    void turn_ended() override;

private:
    ConnectionFactory create_connection_;
    config::Settings& settings_;
    Journal& journal_;
    std::unique_ptr<platform::Connection> connection_;
    std::string user_name_;
    std::string password_;
    std::string server_ip_;
    std::string odbc_name_; // read and defaulted; the connection string has no place for it
    std::string connection_string_;
};

} // namespace qz::store
