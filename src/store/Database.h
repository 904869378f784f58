// The engine's one database connection: how it is described, opened, tested and closed, and the end of a
// turn.
#pragma once

#include "base/Journal.h"
#include "config/Deployment.h"
#include "config/Settings.h"
#include "platform/EventLoop.h"
#include "platform/database/Connection.h"
#include "store/Query.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <type_traits>

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

    /// Runs a query.
    /// @param values  one for each question mark: numbers, texts, dates, Quoted or Literal.
    /// @throws EngineError as all of these operations do: 3709 for a query or an insert on a closed
    /// connection, 3704 for the others.
    template <typename... Values> Rows query(const platform::Statement& statement, const Values&... values)
    {
        std::array<Parameter, sizeof...(Values)> given{Parameter(values)...};
        return query_with(statement, given);
    }
    /// Runs a query and shows its rows one after the other: see Connection::visit.
    template <typename... Values>
    void visit(
        const platform::Statement& statement, const platform::RowVisitor& visitor, const Values&... values)
    {
        std::array<Parameter, sizeof...(Values)> given{Parameter(values)...};
        visit_with(statement, given, visitor);
    }
    /// Whether a query gives a row.
    template <typename... Values> bool finds(const platform::Statement& statement, const Values&... values)
    {
        std::array<Parameter, sizeof...(Values)> given{Parameter(values)...};
        return finds_with(statement, given);
    }
    /// Runs a statement without a result.
    template <typename... Values> void run(const platform::Statement& statement, const Values&... values)
    {
        std::array<Parameter, sizeof...(Values)> given{Parameter(values)...};
        run_with(statement, given);
    }

    // Single rows. What these change waits for the end of the turn where that is possible; see Connection.
    /// @return the new row's key.
    std::int64_t insert(const platform::Table& table, const platform::RowChange& row);
    /// For callers that can do without the key.
    /// @return the new row's key; 0 when the database has not given it yet.
    std::int64_t add(const platform::Table& table, const platform::RowChange& row);
    void update(const platform::Table& table, std::int64_t key, const platform::RowChange& row);
    void remove(const platform::Table& table, std::int64_t key);

    /// See Connection.
    std::uint64_t change_mark(const platform::Table& table);
    std::uint64_t own_changes(const platform::Table& table);

    bool is_open();
    /// For loops over rows that end when the connection does.
    /// @throws EngineError 3709 on a closed connection.
    void require_open();
    /// What is connected, for people.
    std::string description();
    platform::Maintenance& maintenance();

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
    Rows query_with(const platform::Statement& statement, std::span<Parameter> given);
    void visit_with(const platform::Statement& statement, std::span<Parameter> given,
        const platform::RowVisitor& visitor);
    bool finds_with(const platform::Statement& statement, std::span<Parameter> given);
    void run_with(const platform::Statement& statement, std::span<Parameter> given);
    template <typename Work> std::invoke_result_t<Work> noting_failure(Work work);
    platform::Connection& connection();
    platform::Connection& open_connection();
    void store_defaults();
    bool store_turn();
    std::string connection_string(const std::string& password) const;

    ConnectionFactory create_connection_;
    config::Settings& settings_;
    const config::Deployment& deployment_;
    Journal& journal_;
    bool failed_statement_ = false; // a statement of this turn failed because of the database
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
