// velto-server check: looks a home over before something goes wrong.
#pragma once

#include "Home.h"
#include "common/Exit.h"

namespace velto {

/// Prints one finding a line, with file, section, key and cure, or all as JSON. Changes nothing.
/// @return Exit::Configuration when something must be mended before the server can run as meant; doubtful
/// things alone are warnings.
Exit run_check(const Home& home, bool json);

} // namespace velto
