#include "notify/OncePerDay.h"

namespace qz::notify {

namespace {

constexpr std::string_view kSection = "DailyJobs";

} // namespace

bool OncePerDay::may_run(std::string_view job)
{
    if (!deployment_.daily_jobs_once_per_day()) {
        return true;
    }
    const auto today = clock_.now().date();
    auto last = last_runs_.find(job);
    if (last == last_runs_.end()) {
        const auto stored = DateTime::parse(ini_.ReadIniValue(kSection, job));
        last = last_runs_.emplace(job, stored.value_or(DateTime()).date()).first;
    }
    const auto ahead = days_between(today, last->second);
    if (ahead == 0 || ahead == 1) {
        return false;
    }
    last->second = today; // holds even where the file cannot be written
    ini_.WriteIniValue(kSection, job, today.date_text());
    return ahead < 0;
}

} // namespace qz::notify
