// velto-server inactivity: what the next run of the inactivity job would do.
#pragma once

#include "Home.h"

namespace velto {

struct InactivityOptions {
    bool dry_run = false;
    bool json = false;
};

/// Prints who would be warned or disabled, and why. Changes and mails nothing.
/// @throws CommandError 2 without the dry run: the job itself belongs to the server.
void run_inactivity(const Home& home, const InactivityOptions& options);

} // namespace velto
