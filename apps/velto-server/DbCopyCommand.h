// velto-server db copy: moves all rows from the database of one home to that of another.
#pragma once

#include "Home.h"

#include <string>

namespace velto {

struct DbCopyOptions {
    std::string from;
    std::string to;
    bool replace = false; // what stands in the target
};

/// Keys stay as they are, and so do the encoded passwords: both homes must have the same key file. Counts and
/// checksums of all tables are compared in the end.
/// @throws CommandError 1 when the target is not empty and may not be replaced, when a server runs on one of
/// the homes, and when the tables differ in the end.
void run_db_copy(const DbCopyOptions& options);

} // namespace velto
