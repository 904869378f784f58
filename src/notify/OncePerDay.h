// The safeguard that keeps the daily jobs to one run a day.
#pragma once

#include "base/Clock.h"
#include "config/Deployment.h"
#include "config/IniFile.h"

#include <map>
#include <string>
#include <string_view>

namespace qz::notify {

/// The settings file holds the day of each job's last run, so that a restart does not repeat its mails. A day
/// in the future means that the clock was set back. Tomorrow is waited for; any other is replaced by today,
/// which then counts as a run, so that the job runs again on the next day.
class OncePerDay {
public:
    OncePerDay(const config::Deployment& deployment, config::IniFile& ini, const Clock& clock)
        : deployment_(deployment), ini_(ini), clock_(clock)
    {
    }

    /// Asked by a job that is due. With the safeguard it is told yes once a day, and a yes counts as a run.
    bool may_run(std::string_view job);

private:
    const config::Deployment& deployment_;
    config::IniFile& ini_;
    const Clock& clock_;
    std::map<std::string, DateTime, std::less<>> last_runs_; // as far as they are known
};

} // namespace qz::notify
