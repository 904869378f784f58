// Notices that the database file of a running server was deleted, moved or replaced.
#pragma once

#include "Home.h"
#include "HostLog.h"

#include <filesystem>
#include <sys/types.h>

namespace velto {

/// The server goes on with the file that it has open, under whatever name. Nobody else finds that file, and
/// the next start finds another one.
class DatabaseWatch {
public:
    /// Remembers the file that the server has open now. Without an embedded database there is nothing to
    /// watch.
    DatabaseWatch(const Home& home, HostLog& log);

    /// Logs an error when the file is not the same any more, once until it is back. Costs microseconds.
    void look();

private:
    std::filesystem::path file_; // empty when there is nothing to watch
    HostLog& log_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    bool gone_ = false;
};

} // namespace velto
