// velto-server check: looks a home over before something goes wrong.
#pragma once

#include "Findings.h"
#include "Home.h"
#include "common/Exit.h"

namespace velto {

/// Prints one finding a line, with file, section, key and cure, or all as JSON. Changes nothing.
/// @return Exit::Configuration when something must be mended before the server can run as meant; doubtful
/// things alone are warnings.
Exit run_check(const Home& home, bool json);

/// What a start needs to know: all but the port and the state of the database, which may be right a moment
/// later. Raises the process's limit of open files, and changes nothing else.
Findings look_over(const Home& home);

} // namespace velto
