// Who has been inactive for how long, and what follows from it: the rule of the inactivity job, also for
// those who want to know beforehand.
#pragma once

#include "base/Clock.h"
#include "config/Deployment.h"
#include "config/Settings.h"
#include "store/LastActivity.h"
#include "store/LastLogOns.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qz::notify {

/// Without the safeguard InactivityByLastLogon, inactivity is the age of a user's oldest log row, in whole
/// days. With it, it is counted from the user's last logon, and disabled accounts are left alone; an account
/// without a known logon counts from the first run of the job that sees it.
///
/// With the safeguard InactivityGuard the administrator's account is never inactive, and when more than a
/// tenth of the enabled accounts, and more than kFewAccounts, are to be disabled at once, none is: more
/// likely than all of these people being away is a clock or a setting that is wrong.
class InactivityRule {
public:
    /// Days before the limit during which a user is warned.
    static constexpr std::int32_t kWarningDays = 7;

    /// Accounts that may be disabled at once whatever their share.
    static constexpr std::size_t kFewAccounts = 5;

    InactivityRule(store::LastActivity& activity, store::LastLogOns& last_log_ons,
        const config::Settings& settings, const config::Deployment& deployment, const Clock& clock)
        : activity_(activity), last_log_ons_(last_log_ons), settings_(settings), deployment_(deployment),
          clock_(clock)
    {
    }

    enum class Step { None, Warn, Disable };
    /// @param limit  days after which an account is disabled; 0 or less when none is.
    static Step step(std::int32_t limit, std::int32_t days_inactive);

    struct Findings {
        std::vector<store::InactiveUser> inactive; // that long or longer: the longest first
        std::vector<std::string> uncounted;        // accounts that nobody has begun to count
        // Set where more than a few are to be disabled:
        std::size_t due = 0;      // enabled accounts that are to be disabled
        std::size_t accounts = 0; // enabled accounts
        bool held = false;        // too many are due: none is to be disabled
    };
    /// Who is to be warned or disabled.
    /// @param limit  days after which an account is disabled.
    /// @return nothing when the tables could not be read, which has been reported then.
    std::optional<Findings> look(std::int32_t limit);

    /// When the user was last active: the newest log row, or the last logon where that counts. Nothing when
    /// no such time is known.
    std::optional<DateTime> last_active(const std::string& user_name);

    bool by_last_logon() const { return deployment_.inactivity_by_last_logon(); }
    void begin_counting(const std::string& user_name) { last_log_ons_.begin_counting(user_name); }

private:
    std::optional<Findings> find(std::int32_t least_days);
    std::optional<Findings> look_at_logons(std::int32_t least_days);
    bool guard(Findings& findings, std::int32_t limit);

    store::LastActivity& activity_;
    store::LastLogOns& last_log_ons_;
    const config::Settings& settings_;
    const config::Deployment& deployment_;
    const Clock& clock_;
};

} // namespace qz::notify
