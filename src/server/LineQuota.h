// The safeguard LogLinesPerAddress: how many lines strangers may add to the log.
#pragma once

#include "base/Clock.h"
#include "config/Deployment.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qz::server {

/// Counts the lines that connections of one address cause while nobody is logged on on them. The first ones
/// of a minute are written, the others are counted. Addresses beyond kMostAddresses in a minute share one
/// count, so memory and lines are bounded.
class LineQuota {
public:
    static constexpr std::size_t kMostAddresses = 1'000;
    static constexpr std::string_view kOthers = "other addresses";

    struct Unwritten {
        std::string address; // as it counts: of an IPv6 address its network
        std::int64_t lines = 0;
    };

    LineQuota(const config::Deployment& deployment, const Clock& clock)
        : deployment_(deployment), clock_(clock)
    {
    }

    bool is_on() const { return deployment_.log_lines_per_address().has_value(); }
    /// Whether one more line that an address causes may be written.
    bool takes(std::string_view address);
    /// Forgets the minutes that are over. Run on every tick.
    /// @return what was not written in them.
    std::vector<Unwritten> end_minutes();
    /// The same for all minutes, over or not.
    std::vector<Unwritten> end_all();

private:
    using Time = std::chrono::steady_clock::time_point;
    struct Minute {
        Time begin;
        std::int64_t written = 0;
        std::int64_t unwritten = 0;
    };

    std::vector<Unwritten> end_until(Time last_begin);

    const config::Deployment& deployment_;
    const Clock& clock_;
    std::unordered_map<std::string, Minute> minutes_; // by address
};

} // namespace qz::server
