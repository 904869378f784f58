// The only source of time. Tests advance a clock of their own by hand.
#pragma once

#include "base/DateTime.h"

#include <chrono>

namespace qz {

class Clock {
public:
    virtual ~Clock() = default;
    /// Local wall time in whole seconds. May jump either way when somebody sets the machine's clock.
    virtual DateTime now() const = 0;
    /// Time for measuring durations; never goes back.
    virtual std::chrono::steady_clock::time_point steady() const = 0;

protected:
    Clock() = default;
    Clock(const Clock&) = default;
    Clock& operator=(const Clock&) = default;
};

} // namespace qz
