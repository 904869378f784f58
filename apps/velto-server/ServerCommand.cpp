#include "ServerCommand.h"

#include "HomeLock.h"
#include "HomeStore.h"
#include "StatusFile.h"
#include "base/Text.h"
#include "common/Exit.h"
#include "helpers/ServerCommandNames.h"
#include "server/ServerCommands.h"
#include "store/Statements.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <thread>
#include <vector>

namespace velto {

namespace {

using qz::server::ServerCommands;

constexpr std::size_t kLongestText = 4000; // characters; clients show it in one piece
/// A tick comes every second at least; a database may hold the server up for longer.
constexpr std::chrono::seconds kTimeToCarryOut(10);
constexpr std::chrono::seconds kTimeOfOneThatHangs(2); // it may have come back just now
constexpr std::chrono::milliseconds kPause(25);

/// The carrying out is the running server's.
class Elsewhere final : public qz::server::CommandActions {
    void shut_down() override { }
    void PropagatePolicy() override { }
    void CloseAllConnections() override { }
    void send_last_version() override { }
    void Send_RemoteCommand2All(const std::string& /*message*/, const std::string& /*command*/) override { }
    void Send_MessageToAllActive(const std::string& /*text*/) override { }
    void log_off(const std::string& /*screen_name*/) override { }
};

/// The keys of the commands that wait, oldest first.
std::vector<std::int64_t> waiting_commands(HomeStore& store)
{
    std::vector<std::int64_t> keys;
    for (const auto& row : store.database.query(qz::store::statements::kSelectCommands)) {
        keys.push_back(row.key());
    }
    return keys;
}

std::chrono::seconds patience_with(const Home& home, pid_t process)
{
    const auto status = StatusFile(home).read(process);
    return status && status->is_silent() ? kTimeOfOneThatHangs : kTimeToCarryOut;
}

/// The server removes the row of a command when it has carried it out.
/// @param key  of the row.
/// @throws CommandError 3 when the server ends before, 4 when it takes too long.
void wait_until_carried_out(HomeStore& store, const Home& home, pid_t process, std::int64_t key)
{
    const auto begin = std::chrono::steady_clock::now();
    const auto waits = [&] {
        const auto keys = waiting_commands(store);
        store.commit(); // the next look is to see what others have changed
        return std::find(keys.begin(), keys.end(), key) != keys.end();
    };
    while (waits()) {
        if (HomeLock::holder(home) != process && waits()) {
            throw CommandError(Exit::NoServer,
                "the server ended before it carried the command out; its next start discards it");
        }
        if (std::chrono::steady_clock::now() - begin > patience_with(home, process)) {
            throw CommandError(Exit::Unconfirmed,
                "the command is stored, but process " + std::to_string(process)
                    + " has not yet carried it out; it will as soon as it responds\nSee how it is: "
                      "velto-server status --home "
                    + home.folder().string());
        }
        std::this_thread::sleep_for(kPause);
    }
}

void write_command(const Home& home, const std::string& what,
    const std::function<void(HomeDirectory&, ServerCommands&)>& write)
{
    home.require_initialised();
    const auto process = HomeLock::holder(home);
    if (!process) {
        throw CommandError(Exit::NoServer,
            "no server runs in " + home.folder().string()
                + " to take the command; nothing was written\nA server discards what was written before its "
                  "start.");
    }
    HomeDirectory store(home);
    Elsewhere actions;
    ServerCommands commands(store.database, store.parser, actions, store.journal);
    write(store, commands);
    const auto keys = waiting_commands(store);
    store.commit();
    if (!keys.empty()) {
        wait_until_carried_out(store, home, *process, keys.back());
    }
    std::cout << what << ": told process " << *process << "\n";
}

/// A text as the statement takes it: its quotes doubled.
/// @throws CommandError 2 for what no client could show.
std::string sendable(const HomeDirectory& store, const std::string& kind, const std::string& text)
{
    const auto refuse = [&](const std::string& what) {
        throw CommandError(Exit::Usage, "the " + kind + " " + what + "; nothing was written");
    };
    if (qz::trim(text).empty()) {
        refuse("must not be empty");
    }
    if (qz::character_count(text) > kLongestText) {
        refuse("is too long: at most " + std::to_string(kLongestText) + " characters");
    }
    const auto without_lines = qz::replace_all(qz::replace_all(text, "\n", ""), "\t", "");
    if (qz::printable(without_lines) != without_lines) {
        refuse("must not have control characters, and must be UTF-8");
    }
    return store.parser.CleanText(text);
}

} // namespace

void run_command_shutdown(const Home& home)
{
    // Not ShutDownServer, which closes all connections first: nobody would be left to be told.
    write_command(home, "Shutdown", [](auto& /*store*/, auto& commands) {
        commands.set_ServerCommand(qz::helpers::server_command_names().ShutDownCommand, {});
    });
}

void run_command_policy(const Home& home)
{
    write_command(home, "Policy to all clients",
        [](auto& /*store*/, auto& commands) { commands.SendPolicyToClients(); });
}

void run_command_last_version(const Home& home)
{
    write_command(home, "Latest version to all clients",
        [](auto& /*store*/, auto& commands) { commands.SendLastVersionToClients(); });
}

void run_command_close_all(const Home& home)
{
    write_command(home, "Close all connections",
        [](auto& /*store*/, auto& commands) { commands.PushCloseAllConnections(); });
}

void run_command_remote(const Home& home, const std::string& remote_command, const std::string& text)
{
    write_command(home, "Remote command to all clients", [&](const auto& store, auto& commands) {
        const auto command = sendable(store, "remote command", remote_command);
        commands.SendRemoteCommand(text.empty() ? text : sendable(store, "text", text), command);
    });
}

void run_command_message(const Home& home, const std::string& text)
{
    write_command(home, "Message to all clients", [&](const auto& store, auto& commands) {
        commands.SendInstantMessageToAll(sendable(store, "message", text));
    });
}

void run_command_log_off(const Home& home, const std::string& name)
{
    write_command(home, "Log off " + qz::printable(name), [&](const auto& store, auto& commands) {
        const auto* user = store.directory.user_named_in_any_case(name);
        if (user == nullptr) {
            throw CommandError(Exit::Failed,
                "there is no account \"" + qz::printable(name)
                    + "\"; nothing was written\nAll of them: velto-server user list --home "
                    + store.machine.home().string());
        }
        commands.LogOffUser(store.parser.CleanText(user->UserName));
    });
}

} // namespace velto
