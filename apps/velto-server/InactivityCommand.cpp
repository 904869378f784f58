#include "InactivityCommand.h"

#include "HomeStore.h"
#include "base/Text.h"
#include "common/Console.h"
#include "common/Exit.h"
#include "helpers/ProtocolKeywords.h"
#include "notify/InactivityJob.h"
#include "notify/InactivityRule.h"
#include "notify/Mail.h"
#include "notify/NoticeMails.h"
#include "store/LastActivity.h"
#include "store/LastLogOns.h"

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

/// What the job is made of, on a home.
struct Inactivity {
    explicit Inactivity(HomeDirectory& home) : store(home) { }

    Report report()
    {
        Report report;
        report.limit = store.settings.get_ClientInactivityDaysBeforeDisabling();
        report.by_last_logon = rule.by_last_logon();
        if (report.limit <= 0) {
            return report;
        }
        auto findings = rule.look(report.limit);
        store.journal.require_success();
        if (findings) {
            report.findings = *std::move(findings);
        }
        return report;
    }

    HomeDirectory& store;
    qz::store::LastActivity activity{store.database, store.journal};
    qz::store::LastLogOns last_log_ons{
        store.database, store.deployment, store.machine.clock(), store.journal};
    InactivityRule rule{activity, last_log_ons, store.settings, store.deployment, store.machine.clock()};
};

/// Writes the job's lines into the activity log, as the server does, and failed mails to standard error.
class ApplyJournal final : public qz::Journal {
public:
    explicit ApplyJournal(qz::store::ActivityLog& log) : log_(log) { }

    void Log(const std::string& message, const std::string& user_name, const std::string& remote_ip) override
    {
        log_.Write2dbLog(message, remote_ip, user_name); // crossed, as all lines are
    }
    void log_own(const std::string& message) override
    {
        const auto& words = qz::helpers::protocol_keywords();
        Log(message, words.HostName, words.HostAddress);
    }
    void ReportError(
        std::string_view /*routine*/, const qz::EngineError& error, const std::string& /*address*/) override
    {
        warn(error.description());
    }
    void raise_error(
        std::string_view routine, const qz::EngineError& error, const std::string& address) override
    {
        ReportError(routine, error, address);
    }

private:
    qz::store::ActivityLog& log_;
};

void print_json(const Report& report)
{
    nlohmann::ordered_json users = nlohmann::json::array();
    for (const auto& user : report.findings.inactive) {
        users.push_back({{"user", user.UserName}, {"action", report.action(user)}, {"days", user.DaysAgo},
            {"days_left", (std::max)(report.limit - user.DaysAgo, 0)}, {"reason", report.reason(user)}});
    }
    const nlohmann::ordered_json object = {{"limit", report.limit},
        {"counted_from", report.by_last_logon ? "lastlogon" : "log"}, {"users", users},
        {"not_counted_yet", report.findings.uncounted}, {"held", report.findings.held}};
    std::cout << object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

void print_off()
{
    std::cout << "The job is off: \"General SetUp/ClientInactivityDaysBeforeDisabling\" is 0.\n";
}

void print_user(const Report& report, const qz::store::InactiveUser& user)
{
    std::cout << report.action(user) << "  " << qz::printable(user.UserName) << ": " << report.reason(user)
              << "\n";
}

void print_text(const Report& report)
{
    if (report.limit <= 0) {
        print_off();
        return;
    }
    const auto& findings = report.findings;
    for (const auto& user : findings.inactive) {
        print_user(report, user);
    }
    for (const auto& user : findings.uncounted) {
        std::cout << "count  " << qz::printable(user)
                  << ": no logon is known; counts from the next run of the job\n";
    }
    if (findings.inactive.empty() && findings.uncounted.empty()) {
        std::cout << "Nobody would be warned or disabled.\n";
    }
    if (findings.held) {
        std::cout << "The server disables nobody: " << findings.due << " of " << findings.accounts
                  << " accounts are due at once. Is the clock right?\n"
                     "To disable them on purpose: velto-server inactivity --apply\n";
    }
}

void apply(Inactivity& inactivity, bool yes)
{
    auto& store = inactivity.store;
    const auto report = inactivity.report();
    if (report.limit <= 0) {
        print_off();
        return;
    }
    auto due = report.findings.inactive;
    std::erase_if(due, [&](const auto& user) {
        return report.step(user) != InactivityRule::Step::Disable
            || !store.accounts.ScreenName_Enabled(user.UserName);
    });
    for (const auto& user : due) {
        print_user(report, user);
    }
    if (due.empty()) {
        std::cout << "Nobody is due to be disabled.\n";
        return;
    }
    std::cout << std::flush;
    const auto count = std::to_string(due.size()) + (due.size() == 1 ? " account" : " accounts");
    if (!yes && !confirm("Disable " + count + "?")) {
        std::cout << "Nothing was changed.\n";
        return;
    }
    ApplyJournal journal(store.log);
    qz::notify::Mail mail([&](auto& events) { return store.machine.create_mailer(events); }, store.accounts,
        store.settings, store.deployment, journal);
    qz::notify::NoticeMails notices(mail, store.accounts, store.settings, store.machine.clock());
    qz::notify::InactivityJob job({inactivity.rule, store.database, store.log}, store.settings,
        store.accounts, notices, store.machine.clock(), journal);
    for (const auto& user : due) {
        job.disable(user.UserName);
    }
    store.commit();
    mail.finish();
    std::cout << count << " disabled\n";
}

} // namespace

void run_inactivity(const Home& home, const InactivityOptions& options)
{
    if (!options.dry_run && !options.apply) {
        throw CommandError(Exit::Usage,
            "the job runs in the server; --dry-run tells what it would do, --apply disables by hand");
    }
    home.require_initialised();
    HomeDirectory store(home);
    Inactivity inactivity(store);
    if (options.apply) {
        apply(inactivity, options.yes);
        return;
    }
    const auto report = inactivity.report();
    options.json ? print_json(report) : print_text(report);
}

} // namespace velto
