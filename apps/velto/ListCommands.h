// velto who, velto rooms: the server's lists, from a script.
#pragma once

#include "LogOnOptions.h"
#include "common/Exit.h"

namespace velto {

Exit run_who(const LogOnOptions& log_on, bool json);
Exit run_rooms(const LogOnOptions& log_on, bool json);

} // namespace velto
