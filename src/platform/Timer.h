// The housekeeping timer component.
#pragma once

#include <chrono>

namespace qz::platform {

class TimerEvents {
public:
    virtual void timer_ticked() = 0;

protected:
    ~TimerEvents() = default;
};

/// Ticks on the loop's thread while it is enabled. A late tick is not made up for.
class Timer {
public:
    Timer() = default;
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    virtual ~Timer() = default;

    virtual void set_interval(std::chrono::milliseconds interval) = 0;
    virtual std::chrono::milliseconds interval() const = 0;
    virtual void set_enabled(bool enabled) = 0;
};

} // namespace qz::platform
