// velto-server backup: one file from which a home can be restored, also while its server runs.
#pragma once

#include "Home.h"

#include <string>

namespace velto {

struct BackupOptions {
    std::string file;
    bool force = false; // replaces a file that is there
};

/// Writes a tar archive with the settings, the key and a copy of the embedded database as it is at this
/// moment.
/// @throws CommandError 1 when the file is there already or something cannot be read or written, 2 when it is
/// a file of the home. No half of an archive is left behind.
void run_backup(const Home& home, const BackupOptions& options);

} // namespace velto
