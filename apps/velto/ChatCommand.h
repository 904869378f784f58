// velto without a command: a chat.
#pragma once

#include "LogOnOptions.h"
#include "common/Exit.h"

namespace velto {

/// Returns when the user leaves, or standard input ends and everything that it held is with the server.
/// @throws CommandError 3 when the server cannot be reached at first, 1 when it refuses.
Exit run_chat(const LogOnOptions& log_on);

} // namespace velto
