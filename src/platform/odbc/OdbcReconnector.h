// Finds the way back to a server whose link was lost, without ever waiting for it.
#pragma once

#include "platform/odbc/OdbcLink.h"

#include <chrono>
#include <memory>
#include <string>

namespace qz::platform {

class OdbcReconnector {
public:
    explicit OdbcReconnector(const OdbcTimes& times, std::shared_ptr<StatementTrace> trace = {})
        : times_(times), trace_(std::move(trace))
    {
    }

    /// The first attempt comes after a short time, later ones after longer and longer times.
    /// @param former  name of the session that was lost; empty when there was none.
    void begin(const std::string& connection_string, const std::string& former = {});
    /// What poll gave cannot be used: goes on as after an attempt that failed.
    void refuse();
    void stop();
    bool is_running() const { return running_; }
    std::chrono::seconds running_time() const;
    /// Takes the next step when it is due.
    /// @return the new link, once it is open.
    std::unique_ptr<OdbcLink> poll();

private:
    void wait_longer();
    using SteadyClock = std::chrono::steady_clock;

    OdbcTimes times_;
    std::shared_ptr<StatementTrace> trace_;
    bool running_ = false;
    std::string connection_string_;
    std::string former_;
    SteadyClock::time_point began_{};
    SteadyClock::time_point next_attempt_{};
    std::chrono::milliseconds delay_{};
    std::unique_ptr<OdbcLink> attempt_;
};

} // namespace qz::platform
