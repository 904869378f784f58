// velto listen: what comes, one line each.
#pragma once

#include "LogOnOptions.h"
#include "common/Exit.h"

namespace velto {

struct ListenOptions {
    bool json = false;
    int count = 0;   // messages after which it ends; 0 for no end
    int timeout = 0; // seconds after which it ends; 0 for no end
};

/// @return Failed when fewer messages came than were to be waited for.
Exit run_listen(const LogOnOptions& log_on, const ListenOptions& options);

} // namespace velto
