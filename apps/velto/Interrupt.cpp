#include "Interrupt.h"

#include <csignal>
#include <initializer_list>

namespace velto {

namespace {

volatile std::sig_atomic_t requested_ = 0; // NOLINT: signal handlers reach nothing else

void note(int /*signal*/)
{
    requested_ = 1;
}

} // namespace

Interrupt::Interrupt()
{
    requested_ = 0;
    struct sigaction action { };
    action.sa_handler = note; // without SA_RESTART, so that a poll ends
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
}

bool Interrupt::requested()
{
    return requested_ != 0;
}

} // namespace velto
