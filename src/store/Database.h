// The engine's one database connection: how it is described, opened, tested and closed, and the end of a
// turn.
#pragma once

#include "base/Journal.h"
#include "config/Deployment.h"
#include "config/Settings.h"
#include "platform/EventLoop.h"
#include "platform/database/Connection.h"
#include "platform/database/Recordset.h"

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qz::store {

/// Hears what becomes of the turns. Called once at the end of each, before anything that the turn said
/// leaves.
class TurnOutcome {
public:
    /// The turn's changes are about to be stored, with those that this call adds.
    virtual void turn_ending() = 0;
    virtual void turn_stored() = 0;
    /// Nothing of what the turn changed is stored.
    virtual void turn_lost() = 0;

protected:
    ~TurnOutcome() = default;
};

class Database final : public platform::TurnListener {
public:
    using ConnectionFactory = std::function<std::unique_ptr<platform::Connection>()>;

    /// @param create_connection  makes a closed connection of the provider that the settings name at that
    /// moment.
    Database(ConnectionFactory create_connection, config::Settings& settings,
        const config::Deployment& deployment, Journal& journal);

    /// Reads the four database settings; the default holds for each that is empty.
    void LoadDatabaseSettings();
    /// Makes the connection string anew, and opens the connection if it is closed. Stores the default of each
    /// setting that is empty, but not over one that this server's key does not open.
    void BuildConnectionString();
    /// The password of some account that is stored encoded; nothing when there is none.
    /// @throws EngineError when the accounts cannot be read.
    std::optional<std::string> an_encoded_password();
    /// Opens the connection and logs whether a probe query works. Errors are logged and reported under
    /// "opendbConnection: ".
    void OpendbConnection();
    /// Closes the connection; errors are ignored.
    void ClosedbConnection();
    /// "Connection OK", or three lines that tell what was tried. They hold the database password, unless the
    /// safeguard HidePasswords masks it.
    std::string ConnectionTest();
    static std::string get_ConnectionOK() { return "Connection OK"; }

    /// The connection, open or not.
    platform::Connection& connection();
    /// Runs a statement without a result.
    void execute(const platform::Statement& statement, std::initializer_list<std::string_view> values = {});
    /// Opens a recordset: static, optimistic, on a command text.
    platform::Recordset open(
        const platform::Statement& statement, std::initializer_list<std::string_view> values = {});

    /// @param outcome  outlives the last end of a turn; there is one at most.
    void tell(TurnOutcome& outcome) { outcome_ = &outcome; }
    /// This turn is to be stored as a whole or not at all: from now on a statement that fails because of the
    /// database, not because of what it says, is the failure of the turn.
    void require_whole_turn() { whole_ = true; }
    /// Nothing of this turn will be stored.
    void fail_turn() { failed_ = true; }
    /// The safeguard HidePasswords is on.
    bool hides_passwords() const { return deployment_.hide_passwords(); }

    /// Commits what this turn of the loop changed, and logs what happened to the connection. A failure raises
    /// Error only: the log could not take it either. A connection whose link was lost finds its way back
    /// here.
    void turn_ended() override;

private:
    void store_defaults();
    std::unique_ptr<platform::Connection> make_connection();
    bool store_turn();
    std::string connection_string(const std::string& password) const;

    ConnectionFactory create_connection_;
    config::Settings& settings_;
    const config::Deployment& deployment_;
    Journal& journal_;
    bool troubled_ = false; // a statement of this turn failed because of the database
    std::unique_ptr<platform::Connection> connection_;
    std::string user_name_;
    std::string password_;
    std::string server_ip_;
    std::string odbc_name_; // read and defaulted; the connection string has no place for it
    std::string connection_string_;
    TurnOutcome* outcome_ = nullptr;
    // Of this turn.
    bool whole_ = false;
    bool failed_ = false;
};

} // namespace qz::store
