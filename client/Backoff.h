// How long to wait before connecting again.
#pragma once

#include "helpers/Crypto.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace qz::client {

/// Every delay is drawn anew between nothing and a limit, and the limit doubles with each: clients that were
/// thrown off together do not come back together.
class Backoff {
public:
    static constexpr std::chrono::milliseconds kFirstLimit{1'000};
    static constexpr std::chrono::milliseconds kGreatestLimit{60'000};

    /// @param crypto  source of the random numbers; outlives this object.
    explicit Backoff(helpers::Crypto& crypto) : crypto_(crypto) { }

    std::chrono::milliseconds next()
    {
        const auto limit = limit_;
        limit_ = (std::min)(limit_ * 2, kGreatestLimit);
        const auto drawn = crypto_.random_below(static_cast<std::uint64_t>(limit.count()) + 1);
        return std::chrono::milliseconds(static_cast<std::int64_t>(drawn));
    }
    /// The next delay is a short one again.
    void reset() { limit_ = kFirstLimit; }

private:
    helpers::Crypto& crypto_;
    std::chrono::milliseconds limit_ = kFirstLimit;
};

} // namespace qz::client
