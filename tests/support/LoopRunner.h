// Runs a real event loop on the test's thread until something has happened, and never longer than bounded.
#pragma once

#include "platform/asio/AsioEventLoop.h"
#include "platform/asio/AsioTimer.h"

#include <chrono>
#include <functional>

namespace qz::test {

class LoopRunner : private platform::TurnListener, private platform::TimerEvents {
public:
    explicit LoopRunner(platform::AsioEventLoop& loop) : loop_(loop), pulse_(loop, *this)
    {
        pulse_.set_interval(std::chrono::milliseconds(1));
        loop_.add_listener(*this, platform::TurnPhase::Output);
    }
    LoopRunner(const LoopRunner&) = delete;
    LoopRunner& operator=(const LoopRunner&) = delete;
    virtual ~LoopRunner() { loop_.remove_listener(*this); }

    /// The condition is asked at the end of every turn, and at least every millisecond.
    /// @return false when it did not come true in ten seconds.
    bool until(std::function<bool()> condition)
    {
        return within(std::chrono::seconds(10), std::move(condition));
    }

    bool within(std::chrono::milliseconds limit, std::function<bool()> condition)
    {
        if (condition()) {
            return true;
        }
        condition_ = std::move(condition);
        ends_ = std::chrono::steady_clock::now() + limit;
        reached_ = false;
        pulse_.set_enabled(true);
        loop_.run();
        pulse_.set_enabled(false);
        condition_ = nullptr;
        return reached_;
    }

    /// Runs for a time, for what must not happen.
    void run_for(std::chrono::milliseconds time)
    {
        within(time, [] { return false; });
    }

private:
    void turn_ended() override
    {
        if (condition_) {
            reached_ = reached_ || condition_();
            if (reached_ || std::chrono::steady_clock::now() > ends_) {
                loop_.stop();
            }
        }
    }
    void timer_ticked() override { }

    platform::AsioEventLoop& loop_;
    platform::AsioTimer pulse_;
    std::function<bool()> condition_;
    std::chrono::steady_clock::time_point ends_;
    bool reached_ = false;
};

} // namespace qz::test
