// velto-server log: the newest lines of the activity log.
#pragma once

#include "Home.h"

#include <cstdint>

namespace velto {

struct LogOptions {
    std::int32_t lines = 20;
    bool json = false;
};

/// Prints them oldest first, as they were written.
void run_log(const Home& home, const LogOptions& options);

} // namespace velto
