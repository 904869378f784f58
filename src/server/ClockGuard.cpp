#include "server/ClockGuard.h"

namespace qz::server {

namespace {

using namespace std::chrono_literals;

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr auto kDoubtTime = 24h;
constexpr auto kExpiryPause = 10min;

bool are_apart(std::int64_t left, std::int64_t right)
{
    return left - right > kSecondsPerDay || right - left > kSecondsPerDay;
}

} // namespace

ClockGuard::ClockGuard(const config::Deployment& deployment, const Clock& clock, Journal& journal)
    : deployment_(deployment), clock_(clock), journal_(journal), trusted_offset_(offset_of(clock.now()))
{
}

bool ClockGuard::is_on() const
{
    return deployment_.clock_guard() || deployment_.inactivity_guard();
}

void ClockGuard::begin(const std::optional<DateTime>& newest_line)
{
    const auto offset = offset_of(clock_.now());
    if (newest_line && are_apart(offset, offset_of(*newest_line))) {
        trusted_offset_ = offset_of(*newest_line);
        doubt_ = Doubt{offset, clock_.steady()};
        log_doubt("The newest line of the activity log is of " + newest_line->text() + ";");
    }
}

bool ClockGuard::holds_inactivity()
{
    look();
    return is_on() && is_doubtful_for(kDoubtTime);
}

bool ClockGuard::holds_daily_jobs()
{
    look();
    return deployment_.clock_guard() && is_doubtful_for(kDoubtTime);
}

bool ClockGuard::holds_expiry()
{
    look();
    return deployment_.clock_guard() && is_doubtful_for(kExpiryPause);
}

void ClockGuard::look()
{
    const auto offset = offset_of(clock_.now());
    if (!are_apart(offset, trusted_offset_)) {
        if (doubt_ && is_on()) {
            journal_.log_own("The clock is right again");
        }
        doubt_.reset();
    } else if (!doubt_ || are_apart(offset, doubt_->offset)) {
        doubt_ = Doubt{offset, clock_.steady()};
        const auto days = (offset - trusted_offset_) / kSecondsPerDay;
        log_doubt("The clock was set " + std::to_string(days < 0 ? -days : days)
            + (days < 0 ? " days back;" : " days ahead;"));
    } else if (!is_doubtful_for(kDoubtTime)) {
        trusted_offset_ = doubt_->offset;
        doubt_.reset();
        if (is_on()) {
            journal_.log_own("The clock has kept its time for a day and is not in doubt any more");
        }
    }
}

void ClockGuard::log_doubt(const std::string& how) const
{
    if (is_on()) {
        journal_.log_own(how + " no account is disabled until the clock has kept its time for a day"
            + (deployment_.clock_guard() ? ", and no message expires for 10 minutes" : ""));
    }
}

bool ClockGuard::is_doubtful_for(std::chrono::seconds time) const
{
    return doubt_ && clock_.steady() - doubt_->since < time;
}

std::int64_t ClockGuard::offset_of(DateTime wall) const
{
    return wall.seconds()
        - std::chrono::duration_cast<std::chrono::seconds>(clock_.steady().time_since_epoch()).count();
}

} // namespace qz::server
