#include "server/Housekeeping.h"

#include "base/Guarded.h"
#include "base/Numbers.h"

#include <chrono>

namespace qz::server {

namespace {

using std::chrono::milliseconds;

milliseconds interval_of(config::ServerSpeed speed)
{
    switch (speed) {
    case config::ServerSpeed::Fast:
        return milliseconds(100);
    case config::ServerSpeed::Slow:
        return milliseconds(1000);
    default: // Normal, and any number that is no speed
        return milliseconds(500);
    }
}

} // namespace

Housekeeping::Housekeeping(config::Settings& settings, TickJobs& jobs, Journal& journal)
    : settings_(settings), jobs_(jobs), journal_(journal)
{
}

void Housekeeping::set_ServerSpeed(config::ServerSpeed speed)
{
    settings_.set_ServerSpeedWrite(speed);
    if (timer_ != nullptr) {
        timer_->set_interval(interval_of(speed));
        ticks_per_second_ =
            to_integer<std::int32_t>(1000.0 / static_cast<double>(timer_->interval().count()));
    }
    ticks_per_minute_ = ticks_per_second_ * 60;
    ticks_per_hour_ = ticks_per_minute_ * 60;
    attempt([&] { ticks_per_day_ = to_integer<std::int16_t>(ticks_per_hour_ * 24.0); });
}

void Housekeeping::timer_ticked()
{
    if (!running_ || busy_) {
        return;
    }
    busy_ = true;
    DoServerActivities();
    busy_ = false;
}

void Housekeeping::DoServerActivities()
{
    guarded(journal_, "DoServerActivities", no_address, [&] {
        ++tick_number_;
        if (tick_number_ > 1) {
            jobs_.run_frequent_jobs();
        }
        CounterThreeSeconds.is_due(3 * ticks_per_second_);
        if (CounterConnectionCheck.is_due(3 * ticks_per_minute_)) {
            jobs_.CheckConnectionUp();
        }
        if (CounterOnLineInfo.is_due(ticks_per_minute_)) {
            jobs_.refresh_online_info();
        }
        if (CounterUserList.is_due(5 * ticks_per_minute_)) {
            jobs_.ListAllUsers();
        }
        if (CounterBuddyCleanup.is_due(6 * ticks_per_hour_)) {
            jobs_.clean_up_buddies();
        }
        if (CounterDaily.is_due(ticks_per_day_)) {
            jobs_.run_inactivity_job();
        }
        if (CounterVersionCheck.is_due(2 * ticks_per_day_)) {
            jobs_.check_client_versions();
        }
        jobs_.send_queued_messages();
    });
}

} // namespace qz::server
