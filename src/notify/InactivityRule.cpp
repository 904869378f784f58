#include "notify/InactivityRule.h"

#include "base/Text.h"

#include <algorithm>
#include <unordered_set>

namespace qz::notify {

InactivityRule::Step InactivityRule::step(std::int32_t limit, std::int32_t days_inactive)
{
    const auto days_left = limit - days_inactive;
    if (limit <= 0 || days_left > kWarningDays) {
        return Step::None;
    }
    return days_left > 0 ? Step::Warn : Step::Disable;
}

std::optional<InactivityRule::Findings> InactivityRule::look(std::int32_t limit)
{
    auto findings = find(limit - kWarningDays);
    if (findings && deployment_.inactivity_guard() && !guard(*findings, limit)) {
        return std::nullopt;
    }
    return findings;
}

/// @return false when the accounts could not be read.
bool InactivityRule::guard(Findings& findings, std::int32_t limit)
{
    const auto administrator = settings_.get_AdminScreenName();
    std::erase_if(findings.inactive,
        [&](const auto& user) { return equal_ignoring_case(user.UserName, administrator); });
    std::unordered_set<std::string> due;
    for (const auto& user : findings.inactive) {
        if (step(limit, user.DaysAgo) == Step::Disable) {
            due.insert(user.UserName);
        }
    }
    if (due.size() <= kFewAccounts) {
        return true;
    }
    const auto accounts = last_log_ons_.accounts();
    if (!accounts) {
        return false;
    }
    for (const auto& account : *accounts) {
        findings.accounts += account.AccountActive ? 1U : 0U;
        findings.due += account.AccountActive && due.contains(account.UserName) ? 1U : 0U;
    }
    findings.held = findings.due > kFewAccounts && findings.due * 10 > findings.accounts;
    return true;
}

std::optional<InactivityRule::Findings> InactivityRule::find(std::int32_t least_days)
{
    if (by_last_logon()) {
        return look_at_logons(least_days);
    }
    auto users = activity_.Retrieve_LastActivity(least_days);
    if (!users) {
        return std::nullopt;
    }
    Findings findings;
    findings.inactive = *std::move(users);
    return findings;
}

std::optional<DateTime> InactivityRule::last_active(const std::string& user_name)
{
    return by_last_logon() ? last_log_ons_.last_log_on(user_name)
                           : DateTime::parse(activity_.RetrieveLastActivity(user_name));
}

std::optional<InactivityRule::Findings> InactivityRule::look_at_logons(std::int32_t least_days)
{
    const auto accounts = last_log_ons_.accounts();
    if (!accounts) {
        return std::nullopt;
    }
    Findings findings;
    for (const auto& account : *accounts) {
        if (!account.AccountActive) {
            continue;
        }
        if (account.LogOnTime.empty()) {
            findings.uncounted.push_back(account.UserName);
            continue;
        }
        const auto days = static_cast<std::int32_t>(days_between(account.LogOnTime, clock_.now()));
        if (days >= least_days) {
            findings.inactive.push_back({account.UserName, days});
        }
    }
    std::stable_sort(findings.inactive.begin(), findings.inactive.end(),
        [](const auto& left, const auto& right) { return left.DaysAgo > right.DaysAgo; });
    return findings;
}

} // namespace qz::notify
