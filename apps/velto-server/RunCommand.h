// velto-server run: the server in the foreground.
#pragma once

#include "Home.h"
#include "common/Exit.h"

namespace velto {

struct RunOptions {
    bool events = false; // every event as a JSON line on standard output
};

/// Returns when the server has shut down: by a signal, or by a command.
Exit run_server(const Home& home, const RunOptions& options);

} // namespace velto
