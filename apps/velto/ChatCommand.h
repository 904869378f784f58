// velto without a command: a chat.
#pragma once

#include "LogOnOptions.h"
#include "common/Exit.h"

namespace velto {

/// Returns when the user leaves, or standard input ends and everything that it held is with the server.
/// @throws CommandError 3 when the server cannot be reached at first, 1 when it refuses.
struct ChatOptions {
    std::string file_ports; // on which files may come in; empty for any
    std::string into;       // folder for files; empty for the user's downloads
};

Exit run_chat(const LogOnOptions& log_on, const ChatOptions& options);

} // namespace velto
