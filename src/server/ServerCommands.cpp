#include "server/ServerCommands.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"
#include "helpers/ServerCommandNames.h"
#include "store/Statements.h"

namespace qz::server {

using helpers::server_command_names;

namespace {

constexpr const char* kRemoteCommandKey = "remotecommand";
constexpr const char* kMessageKey = "msg";

} // namespace

ServerCommands::ServerCommands(store::Database& database, const helpers::MessageParser& parser,
    CommandActions& actions, Journal& journal)
    : database_(database), parser_(parser), actions_(actions), journal_(journal)
{
}

void ServerCommands::set_ServerCommand(const std::string& command, const std::string& parameters)
{
    guarded(journal_, "set_ServerCommand", no_address, [&] {
        database_.run(store::statements::kInsertCommand, store::Quoted{command}, store::Quoted{parameters});
    });
}

void ServerCommands::delete_ServerCommand(std::int32_t id)
{
    guarded(journal_, "delete_ServerCommand", no_address, [&] {
        if (id == 0) {
            database_.run(store::statements::kDeleteAllCommands);
        } else {
            database_.run(store::statements::kDeleteCommand, id);
        }
    });
}

void ServerCommands::PushCloseAllConnections()
{
    set_ServerCommand(server_command_names().CloseAllCommand, {});
}

void ServerCommands::ShutDownServer()
{
    PushCloseAllConnections();
    set_ServerCommand(server_command_names().ShutDownCommand, {});
}

void ServerCommands::SendPolicyToClients()
{
    set_ServerCommand(server_command_names().PolicyCommand, {});
}

void ServerCommands::SendInstantMessageToAll(const std::string& message)
{
    set_ServerCommand(server_command_names().InstantMessageCommand, message);
}

void ServerCommands::SendRemoteCommand(const std::string& message, const std::string& remote_command)
{
    const auto& blank_substitute = helpers::protocol_keywords().BlankSubstitute;
    set_ServerCommand(server_command_names().RemoteCommand,
        "remotecommand=" + replace_all(remote_command, " ", blank_substitute) + " msg=" + message);
}

void ServerCommands::LogOffUser(const std::string& screen_name)
{
    set_ServerCommand(server_command_names().LogOffCommand, screen_name);
}

void ServerCommands::SendLastVersionToClients()
{
    set_ServerCommand(server_command_names().LastVersionCommand, {});
}

void ServerCommands::CheckServerCommand()
{
    guarded(journal_, "CheckServerCommand", no_address, [&] {
        if (!database_.is_open()) {
            return; // an outage of the database is logged once, not with each tick
        }
        try {
            poll();
        } catch (const EngineError&) {
            if (database_.is_open()) { // a link that breaks here is told of by its connection
                throw;
            }
        }
    });
}

void ServerCommands::poll()
{
    std::optional<std::uint64_t> mark;
    attempt([&] { mark = database_.change_mark(store::tables::kCommand); });
    if (mark && mark == empty_mark_) {
        return;
    }
    const auto rows = database_.query(store::statements::kSelectCommands);
    if (rows.empty()) {
        empty_mark_ = mark;
    }
    for (const auto& row : rows) {
        carry_out(row["Action"].text(), row["Parameters"].text());
        delete_ServerCommand(row["IDCommand"].integer());
        database_.require_open();
    }
}

void ServerCommands::carry_out(const std::string& action, const std::string& parameters)
{
    const auto& names = server_command_names();
    if (action == names.ShutDownCommand) {
        actions_.shut_down();
    } else if (action == names.PolicyCommand) {
        actions_.PropagatePolicy();
    } else if (action == names.LastVersionCommand) {
        actions_.send_last_version();
    } else if (action == names.CloseAllCommand) {
        actions_.CloseAllConnections();
    } else if (action == names.RemoteCommand) {
        carry_out_remote_command(parameters);
    } else if (action == names.InstantMessageCommand) {
        actions_.Send_MessageToAllActive(parameters);
    } else if (action == names.LogOffCommand) {
        actions_.log_off(parameters);
    }
}

void ServerCommands::carry_out_remote_command(const std::string& parameters)
{
    const auto remote_command = parser_.value(parameters, kRemoteCommandKey);
    actions_.Send_RemoteCommand2All(parser_.value(parameters, kMessageKey),
        replace_all(remote_command, helpers::protocol_keywords().BlankSubstitute, " "));
}

} // namespace qz::server
