// Keeps the status file of a running server true, and its service manager informed.
#pragma once

#include "DatabaseWatch.h"
#include "HostLog.h"
#include "StatusFile.h"
#include "platform/Machine.h"
#include "server/Main.h"

#include <memory>
#include <optional>

namespace velto {

/// Looks at the figures once a second, which is also the sign of life for the service manager. The file is
/// written when one has changed, and every five seconds otherwise: a file that is much older belongs to a
/// server that hangs.
class StatusKeeper final : private qz::platform::TimerEvents {
public:
    /// All of them must outlive the keeper. Begins with start().
    StatusKeeper(const Home& home, qz::platform::Machine& machine, qz::server::Main& main, HostLog& log);
    /// Removes the file.
    ~StatusKeeper();
    StatusKeeper(const StatusKeeper&) = delete;
    StatusKeeper& operator=(const StatusKeeper&) = delete;

    /// The server has started.
    void start();

private:
    void timer_ticked() override;
    void write(const qz::server::Figures& figures);

    const Home& home_;
    StatusFile file_;
    qz::server::Main& main_;
    HostLog& log_;
    std::unique_ptr<qz::platform::Timer> timer_;
    std::optional<DatabaseWatch> database_; // from the start on
    ServerIdentity identity_;
    qz::server::Figures written_;
    int seconds_since_write_ = 0;
    bool failing_ = false; // a failure is logged once, until it works again
};

} // namespace velto
