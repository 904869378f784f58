// velto-server status: what the running server of a home tells of itself.
#pragma once

#include "Home.h"
#include "common/Exit.h"

namespace velto {

/// @return Exit::NoServer when none serves: none runs on the home, or one that is not ready or does not
/// respond.
Exit run_status(const Home& home, bool json);

} // namespace velto
