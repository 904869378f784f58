// The functions that the engine's statements use and the embedded database does not have.
#pragma once

struct sqlite3;

namespace qz {
class Clock;
}

namespace qz::platform {

/// Registers DateDiff, Today and a faster instr on one connection, and gives the clock's time to the columns
/// whose default is the moment of the insert.
/// @param clock  must outlive the connection.
void register_functions(sqlite3* database, const Clock& clock);

} // namespace qz::platform
