#include "platform/asio/AsioTimer.h"

#include "platform/asio/AsioEventLoop.h"
#include "platform/asio/AsioLoopCore.h"

#include <boost/asio/steady_timer.hpp>

#include <cstdint>

namespace qz::platform {

/// Lives as long as the timer or a wait that has not come back.
class AsioTimer::Clockwork : public std::enable_shared_from_this<Clockwork> {
public:
    Clockwork(AsioLoopCore& loop, TimerEvents& events) : loop_(loop), timer_(loop.context()), events_(events)
    {
    }

    std::chrono::milliseconds interval() const { return interval_; }
    bool running() const { return running_; }

    void set_interval(std::chrono::milliseconds interval)
    {
        interval_ = interval;
        if (running_) {
            start();
        }
    }

    void start()
    {
        stop();
        running_ = true;
        due_ = SteadyClock::now();
        wait();
    }

    void stop()
    {
        running_ = false;
        ++wait_; // a wait that has already come back finds itself outdated
        timer_.cancel();
    }

private:
    void wait()
    {
        if (interval_ <= std::chrono::milliseconds::zero()) {
            return;
        }
        const auto now = SteadyClock::now();
        due_ = due_ + interval_ > now ? due_ + interval_ : now + interval_;
        timer_.expires_at(due_);
        timer_.async_wait(
            [self = shared_from_this(), wait = ++wait_](const boost::system::error_code& error) {
                if (!error && wait == self->wait_) {
                    self->tick();
                }
            });
    }

    void tick()
    {
        loop_.event([this] {
            wait();
            events_.timer_ticked();
        });
    }

    AsioLoopCore& loop_;
    asio::steady_timer timer_;
    TimerEvents& events_;
    std::chrono::milliseconds interval_{0};
    SteadyClock::time_point due_;
    std::uint64_t wait_ = 0;
    bool running_ = false;
};

AsioTimer::AsioTimer(AsioEventLoop& loop, TimerEvents& events)
    : clockwork_(std::make_shared<Clockwork>(loop.core(), events))
{
}

AsioTimer::~AsioTimer()
{
    clockwork_->stop();
}

void AsioTimer::set_interval(std::chrono::milliseconds interval)
{
    clockwork_->set_interval(interval);
}

std::chrono::milliseconds AsioTimer::interval() const
{
    return clockwork_->interval();
}

void AsioTimer::set_enabled(bool enabled)
{
    if (enabled == clockwork_->running()) {
        return;
    }
    if (enabled) {
        clockwork_->start();
    } else {
        clockwork_->stop();
    }
}

} // namespace qz::platform
