// The machine's own clock.
#pragma once

#include "base/Clock.h"

#include <ctime>

namespace qz::platform {

/// Reads local time anew only when the second has changed, for it is asked several times an event. One
/// thread at a time.
class SystemClock : public Clock {
public:
    DateTime now() const override;
    std::chrono::steady_clock::time_point steady() const override;

private:
    mutable std::time_t second_ = -1;
    mutable DateTime local_;
};

} // namespace qz::platform
