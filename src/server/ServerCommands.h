// Administrative commands: rows of the table `command`, written by anybody, carried out by the housekeeping
// tick.
#pragma once

#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "store/Database.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qz::server {

/// What the commands do; implemented by the engine.
class CommandActions {
public:
    /// Tells the active users, closes all connections and raises ShutDown.
    virtual void shut_down() = 0;
    virtual void PropagatePolicy() = 0;
    virtual void CloseAllConnections() = 0;
    /// Tells every client on line which version is the latest.
    virtual void send_last_version() = 0;
    virtual void Send_RemoteCommand2All(const std::string& message, const std::string& remote_command) = 0;
    virtual void Send_MessageToAllActive(const std::string& text) = 0;
    virtual void log_off(const std::string& screen_name) = 0;

protected:
    ~CommandActions() = default;
};

class ServerCommands {
public:
    ServerCommands(store::Database& database, const helpers::MessageParser& parser, CommandActions& actions,
        Journal& journal);

    /// Queues a command. Both texts go into the statement as they stand.
    void set_ServerCommand(const std::string& command, const std::string& parameters);
    /// Removes one row; 0 removes all.
    void delete_ServerCommand(std::int32_t id);
    void PushCloseAllConnections();
    /// Close all connections, then shut down.
    void ShutDownServer();
    void SendPolicyToClients();
    void SendInstantMessageToAll(const std::string& message);
    /// Blanks of the remote command travel as BlankSubstitute, so that it ends where the message begins.
    void SendRemoteCommand(const std::string& message, const std::string& remote_command);
    void LogOffUser(const std::string& screen_name);
    void SendLastVersionToClients();

    /// Carries the waiting commands out, oldest first, and removes each row behind it. An unknown command is
    /// dropped. An empty table that nobody has written to since costs no query.
    void CheckServerCommand();

private:
    void poll();
    void carry_out(const std::string& action, const std::string& parameters);
    void carry_out_remote_command(const std::string& parameters);

    store::Database& database_;
    const helpers::MessageParser& parser_;
    CommandActions& actions_;
    Journal& journal_;
    std::optional<std::uint64_t> empty_mark_; // the table's change mark when it was last seen empty
};

} // namespace qz::server
