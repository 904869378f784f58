// What a service manager is told: ready, how it goes, ending. Does nothing where there is none, or where the
// program was built without libsystemd.
#pragma once

#include <string>

namespace velto::service_manager {

void tell_ready();
void tell_stopping();
/// One line that it shows beside the service; also the sign of life that it may wait for.
void tell_status(const std::string& line);

} // namespace velto::service_manager
