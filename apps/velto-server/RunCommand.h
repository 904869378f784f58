// velto-server run: the server in the foreground.
#pragma once

#include "Home.h"
#include "HostLog.h"
#include "common/Exit.h"

#include <optional>

namespace velto {

struct RunOptions {
    bool events = false; // every event as a JSON line on standard output
    std::optional<LogFormat> log_format;
    bool trace_sql = false; // every SQL statement as a line of the log
};

/// Returns when the server has shut down: by a signal, or by a command.
Exit run_server(const Home& home, const RunOptions& options);

} // namespace velto
