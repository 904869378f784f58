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
    const auto last_run = last_runs_.find(job);
    if (last_run != last_runs_.end() && last_run->second == today) {
        return false;
    }
    last_runs_.insert_or_assign(std::string(job), today); // holds even where the file cannot be written
    if (ini_.ReadIniValue(kSection, job) == today.date_text()) {
        return false;
    }
    ini_.WriteIniValue(kSection, job, today.date_text());
    return true;
}

} // namespace qz::notify
