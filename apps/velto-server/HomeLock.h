// One server per home.
#pragma once

#include "Home.h"

#include <sys/types.h>

#include <optional>

namespace velto {

/// Held by a running server for its lifetime; the system lets go of it when the process ends, however it
/// ends. The file VELTO_Server.pid holds the process number meanwhile.
class HomeLock {
public:
    /// @throws CommandError 1 when a server runs in the home already.
    explicit HomeLock(const Home& home);
    ~HomeLock();
    HomeLock(const HomeLock&) = delete;
    HomeLock& operator=(const HomeLock&) = delete;

    /// The process that runs in the home; nothing when none does.
    /// @throws CommandError 1 when this user may not know.
    static std::optional<pid_t> holder(const Home& home);

private:
    int descriptor_;
};

} // namespace velto
