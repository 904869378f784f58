#include "ServiceManager.h"

#ifdef VELTO_WITH_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

namespace velto::service_manager {

namespace {

void tell([[maybe_unused]] const std::string& state)
{
#ifdef VELTO_WITH_SYSTEMD
    sd_notify(0, state.c_str()); // a manager that cannot be told is no reason to stop serving
#endif
}

} // namespace

void tell_ready()
{
    tell("READY=1");
}

void tell_stopping()
{
    tell("STOPPING=1\nSTATUS=Ending");
}

void tell_status(const std::string& line)
{
    tell("WATCHDOG=1\nSTATUS=" + line);
}

} // namespace velto::service_manager
