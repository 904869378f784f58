// velto send: one message, from a script.
#pragma once

#include "LogOnOptions.h"
#include "common/Exit.h"

#include <chrono>
#include <string>

namespace velto {

struct SendOptions {
    std::string to;         // a user, or # and a room
    std::string text = "-"; // "-" stands for standard input
    int timeout = 30;       // seconds
    bool no_wait = false;
    bool quiet = false;
};

/// @return Done when the recipient has confirmed the message (a room never does: then when the server has
/// accepted it), Unconfirmed when only the server has, Failed when it was refused.
Exit run_send(const LogOnOptions& log_on, const SendOptions& options);

} // namespace velto
