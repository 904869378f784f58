#include "InactivityCommand.h"

#include "HomeStore.h"
#include "base/Text.h"
#include "common/Exit.h"
#include "notify/InactivityRule.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

namespace velto {

namespace {

using qz::notify::InactivityRule;

struct Report {
    std::int32_t limit = 0;
    bool by_last_logon = false;
    InactivityRule::Findings findings;

    InactivityRule::Step step(const qz::store::InactiveUser& user) const
    {
        return InactivityRule::step(limit, user.DaysAgo);
    }
    std::string action(const qz::store::InactiveUser& user) const
    {
        return step(user) == InactivityRule::Step::Warn ? "warn" : "disable";
    }
    std::string reason(const qz::store::InactiveUser& user) const
    {
        const auto days = std::to_string(user.DaysAgo);
        auto text = by_last_logon ? "last logon " + days + " days ago"
                                  : "oldest line in the activity log is " + days + " days old";
        text += ", the limit is " + std::to_string(limit);
        if (step(user) == InactivityRule::Step::Warn) {
            text += ", " + std::to_string(limit - user.DaysAgo) + " days left";
        }
        return text;
    }
};

Report make_report(HomeDirectory& store)
{
    Report report;
    report.limit = store.settings.get_ClientInactivityDaysBeforeDisabling();
    report.by_last_logon = store.deployment.inactivity_by_last_logon();
    if (report.limit <= 0) {
        return report;
    }
    qz::store::LastActivity activity(store.database, store.journal);
    qz::store::LastLogOns last_log_ons(
        store.database, store.deployment, store.machine.clock(), store.journal);
    InactivityRule rule(activity, last_log_ons, store.deployment, store.machine.clock());
    auto findings = rule.look(report.limit - InactivityRule::kWarningDays);
    store.journal.require_success();
    if (findings) {
        report.findings = *std::move(findings);
    }
    return report;
}

void print_json(const Report& report)
{
    nlohmann::ordered_json users = nlohmann::json::array();
    for (const auto& user : report.findings.inactive) {
        users.push_back({{"user", user.UserName}, {"action", report.action(user)}, {"days", user.DaysAgo},
            {"days_left", (std::max)(report.limit - user.DaysAgo, 0)}, {"reason", report.reason(user)}});
    }
    const nlohmann::ordered_json object = {{"limit", report.limit},
        {"counted_from", report.by_last_logon ? "lastlogon" : "log"}, {"users", users},
        {"not_counted_yet", report.findings.uncounted}};
    std::cout << object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

void print_text(const Report& report)
{
    if (report.limit <= 0) {
        std::cout << "The job is off: \"General SetUp/ClientInactivityDaysBeforeDisabling\" is 0.\n";
        return;
    }
    for (const auto& user : report.findings.inactive) {
        std::cout << report.action(user) << "  " << qz::printable(user.UserName) << ": "
                  << report.reason(user) << "\n";
    }
    for (const auto& user : report.findings.uncounted) {
        std::cout << "count  " << qz::printable(user)
                  << ": no logon is known; counts from the next run of the job\n";
    }
    if (report.findings.inactive.empty() && report.findings.uncounted.empty()) {
        std::cout << "Nobody would be warned or disabled.\n";
    }
}

} // namespace

void run_inactivity(const Home& home, const InactivityOptions& options)
{
    if (!options.dry_run) {
        throw CommandError(Exit::Usage, "the job runs in the server; --dry-run tells what it would do");
    }
    home.require_initialised();
    HomeDirectory store(home);
    const auto report = make_report(store);
    options.json ? print_json(report) : print_text(report);
}

} // namespace velto
