// velto-server command: tells a running server what to do, by a row of the table `command`.
#pragma once

#include "Home.h"

#include <string>

namespace velto {

// All throw CommandError 3 when no server runs on the home: rows from before a start are discarded by it, so
// nothing is written then. The running server carries a command out at its next housekeeping tick, which is
// waited for: they throw CommandError 4 when it has not come after ten seconds, and 3 when the server ends
// first.

/// Closes all connections and ends the server.
void run_command_shutdown(const Home& home);
void run_command_policy(const Home& home);
void run_command_last_version(const Home& home);
void run_command_close_all(const Home& home);
/// @throws CommandError 2 when the command is empty, or a text cannot be sent.
void run_command_remote(const Home& home, const std::string& remote_command, const std::string& text);
void run_command_message(const Home& home, const std::string& text);
/// @throws CommandError 1 when there is no such account.
void run_command_log_off(const Home& home, const std::string& name);

} // namespace velto
