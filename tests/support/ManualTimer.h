// A timer that ticks when a test says so.
#pragma once

#include "platform/Timer.h"

namespace qz::test {

class ManualTimer : public platform::Timer {
public:
    explicit ManualTimer(platform::TimerEvents& events) : events_(events) { }

    void set_interval(std::chrono::milliseconds interval) override { interval_ = interval; }
    std::chrono::milliseconds interval() const override { return interval_; }
    void set_enabled(bool enabled) override { enabled_ = enabled; }

    bool enabled() const { return enabled_; }
    /// One tick, if the timer is enabled and has an interval.
    void tick()
    {
        if (enabled_ && interval_.count() > 0) {
            events_.timer_ticked();
        }
    }

private:
    platform::TimerEvents& events_;
    std::chrono::milliseconds interval_{0};
    bool enabled_ = false;
};

} // namespace qz::test
