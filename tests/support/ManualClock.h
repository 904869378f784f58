// A clock that only moves when a test says so.
#pragma once

#include "base/Clock.h"

namespace qz::test {

class ManualClock : public Clock {
public:
    DateTime now() const override { return now_; }
    std::chrono::steady_clock::time_point steady() const override { return steady_; }

    /// Time passes, for both clocks.
    void advance(std::chrono::seconds seconds)
    {
        now_ = now_.plus_seconds(seconds.count());
        steady_ += seconds;
    }
    /// Somebody sets the machine's clock; the steady one does not notice.
    void set_now(DateTime now) { now_ = now; }

private:
    DateTime now_ = DateTime::parse("2026-03-02 09:00:00").value();
    std::chrono::steady_clock::time_point steady_{};
};

} // namespace qz::test
