// velto-server status: what the running server of a home tells of itself.
#pragma once

#include "Home.h"
#include "common/Exit.h"

namespace velto {

/// @return Exit::NoServer when none runs on the home.
Exit run_status(const Home& home, bool json);

} // namespace velto
