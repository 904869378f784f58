// Tells when the wall clock is in doubt: somebody has set it, or it was wrong when the engine started.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Deployment.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace qz::server {

/// The wall clock is compared with the steady one, and at the start with the newest line of the activity log.
/// When the two have come apart by more than a day the wall clock is in doubt, until it is back or has kept
/// its new time for a day. Does nothing without the safeguards InactivityGuard and ClockGuard.
class ClockGuard {
public:
    ClockGuard(const config::Deployment& deployment, const Clock& clock, Journal& journal);

    bool is_on() const;
    /// The engine starts for the first time.
    /// @param newest_line  time of the newest line that earlier engines have left in the activity log.
    void begin(const std::optional<DateTime>& newest_line);

    /// Whether the inactivity job waits. One of these is to be asked with every tick.
    bool holds_inactivity();
    /// With ClockGuard: whether the other daily jobs wait, and clearing the log.
    bool holds_daily_jobs();
    /// With ClockGuard: whether messages do not expire. They wait for ten minutes only: a message that is
    /// kept too long is a smaller fault than an account that is disabled too early.
    bool holds_expiry();

private:
    using Time = std::chrono::steady_clock::time_point;
    /// A time to which the clock was set.
    struct Doubt {
        std::int64_t offset = 0;
        Time since;
    };

    void look();
    void log_doubt(const std::string& how) const;
    bool is_doubtful_for(std::chrono::seconds time) const;
    std::int64_t offset_of(DateTime wall) const;

    const config::Deployment& deployment_;
    const Clock& clock_;
    Journal& journal_;
    std::int64_t trusted_offset_; // seconds of the wall clock at the zero of the steady one
    std::optional<Doubt> doubt_;
};

} // namespace qz::server
