// velto-server call: calls one public member of the engine's interface on a home, without starting the
// server.
#pragma once

#include "Home.h"
#include "common/Exit.h"

#include <string>
#include <vector>

namespace velto {

/// One signature a line.
void list_members();

/// Prints {"result": …, "args": {…}} with the by-reference arguments.
/// @return Exit::Failed when the member reported an error, which is then on standard error too.
Exit run_call(const Home& home, const std::string& member, const std::vector<std::string>& arguments);

} // namespace velto
