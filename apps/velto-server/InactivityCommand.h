// velto-server inactivity: what the next run of the inactivity job would do, and disabling by hand.
#pragma once

#include "Home.h"

namespace velto {

struct InactivityOptions {
    bool dry_run = false;
    bool json = false;
    bool apply = false;
    bool yes = false;
};

/// The dry run prints who would be warned or disabled, and why; it changes and mails nothing. `apply`
/// disables those whose time is over after a question, with the job's mails and log lines, also where the job
/// itself disables nobody because too many are due or the clock was set.
/// @throws CommandError 2 when neither is asked for, or nobody is there to answer the question.
void run_inactivity(const Home& home, const InactivityOptions& options);

} // namespace velto
