#include "server/ServerCommands.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"
#include "helpers/ServerCommandNames.h"
#include "store/Statements.h"

namespace qz::server {

using helpers::server_command_names;

ServerCommands::ServerCommands(store::Database& database, CommandActions& actions, Journal& journal)
    : database_(database), actions_(actions), journal_(journal)
{
}

void ServerCommands::set_ServerCommand(const std::string& command, const std::string& parameters)
{
    guarded(journal_, "set_ServerCommand", no_address, [&] {
        database_.execute(store::statements::kInsertCommand, {command, parameters});
    });
}

void ServerCommands::delete_ServerCommand(std::int32_t id)
{
    guarded(journal_, "delete_ServerCommand", no_address, [&] {
        if (id == 0) {
            database_.execute(store::statements::kDeleteAllCommands);
        } else {
            database_.execute(store::statements::kDeleteCommand, {std::to_string(id)});
        }
    });
}

void ServerCommands::PushCloseAllConnections()
{
    set_ServerCommand(server_command_names().CloseAllCommand, {});
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
        std::optional<std::uint64_t> mark;
        attempt([&] { mark = database_.connection().change_mark(store::tables::kCommand); });
        if (mark && mark == empty_mark_) {
            return;
        }
        auto rows = database_.open(store::statements::kSelectCommands);
        if (rows.RecordCount() == 0) {
            empty_mark_ = mark;
        }
        for (; !rows.AtEnd(); rows.MoveNext()) {
            carry_out(rows.Fields("Action").text());
            delete_ServerCommand(rows.Fields("IDCommand").integer());
        }
    });
}

void ServerCommands::carry_out(const std::string& action)
{
    const auto& names = server_command_names();
    if (action == names.ShutDownCommand) {
        actions_.shut_down();
    } else if (action == names.CloseAllCommand) {
        actions_.CloseAllConnections();
    } else if (action == names.LastVersionCommand) {
        actions_.send_last_version();
    }
}

} // namespace qz::server
