// velto-server db: the database of a home, whatever server or file it is.
#pragma once

#include "Home.h"
#include "common/Exit.h"

#include <string>

namespace velto {

/// Makes the tables that are missing; what is there stays.
void run_db_init(const Home& home);

/// What is connected, how fast it answers, and the version of its tables.
/// @return Configuration when the tables are missing or of another version.
Exit run_db_status(const Home& home, bool json);

} // namespace velto
