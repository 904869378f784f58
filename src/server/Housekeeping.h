// The housekeeping tick: its interval, its counters, and the jobs in their order.
#pragma once

#include "base/Journal.h"
#include "config/Settings.h"
#include "platform/Timer.h"

#include <cstdint>

namespace qz::server {

/// The jobs of a tick; implemented by the engine.
class TickJobs {
public:
    /// On every tick but the first.
    virtual void run_frequent_jobs() = 0;
    virtual void CheckConnectionUp() = 0;
    /// Online information and the count of users on line.
    virtual void refresh_online_info() = 0;
    virtual void ListAllUsers() = 0;
    virtual void clean_up_buddies() = 0;
    virtual void run_inactivity_job() = 0;
    virtual void check_client_versions() = 0;
    /// On every tick, last.
    virtual void send_queued_messages() = 0;

protected:
    ~TickJobs() = default;
};

class Housekeeping final : public platform::TimerEvents {
public:
    Housekeeping(config::Settings& settings, TickJobs& jobs, Journal& journal);

    /// The timer to set; a new one at every start.
    void use(platform::Timer* timer) { timer_ = timer; }
    /// Stores the speed and re-times the timer. A step that fails is skipped: with every speed a day has more
    /// ticks than 16 bits hold, so the ticks per day stay 0 and the daily jobs run on every tick. Kept as it
    /// is.
    void set_ServerSpeed(config::ServerSpeed speed);
    std::int32_t ticks_per_second() const { return ticks_per_second_; }

    /// From now on ticks are worked on.
    void run() { running_ = true; }
    /// A tick that comes while another is being worked on does nothing.
    void timer_ticked() override;
    void DoServerActivities();

private:
    /// Counts ticks and tells when there were more than a limit, starting over then.
    class Counter {
    public:
        bool is_due(std::int32_t limit)
        {
            ticks_ = ticks_ >= limit ? 0 : ticks_ + 1;
            return ticks_ == 0;
        }

    private:
        std::int32_t ticks_ = 0;
    };

    config::Settings& settings_;
    TickJobs& jobs_;
    Journal& journal_;
    platform::Timer* timer_ = nullptr;
    bool running_ = false;
    bool busy_ = false;
    std::int64_t tick_number_ = 0;
    std::int32_t ticks_per_second_ = 0;
    std::int32_t ticks_per_minute_ = 0;
    std::int32_t ticks_per_hour_ = 0;
    std::int16_t ticks_per_day_ = 0;
    Counter CounterThreeSeconds; // has no job
    Counter CounterConnectionCheck;
    Counter CounterOnLineInfo;
    Counter CounterUserList;
    Counter CounterBuddyCleanup;
    Counter CounterDaily;
    Counter CounterVersionCheck;
};

} // namespace qz::server
