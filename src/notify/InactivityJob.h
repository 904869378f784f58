// The daily job that warns users of accounts that are not used, and at last disables them.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Settings.h"
#include "notify/InactivityRule.h"
#include "notify/NoticeMails.h"
#include "notify/TableMarks.h"
#include "store/Accounts.h"
#include "store/ActivityLog.h"
#include "store/Database.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qz::notify {

/// InactivityRule says who is inactive. ClientInactivityDaysBeforeDisabling is the limit, and a user is
/// warned during the seven days before it; 0 switches the job off.
///
/// The job keeps no list of whom it has told: every run warns and notifies again whoever is due, so without
/// the safeguard that lets it run once a day those mails leave with every tick. What it does remember is a
/// run that found nobody: as long as day, limit and tables are the same, so is the answer, and a run costs no
/// query. The engine's own log rows, which come with every line, leave it as it is: they are of today.
///
/// When the rule says that too many accounts are due, none is disabled, and the administrator is told once a
/// day.
class InactivityJob {
public:
    /// What the job reads.
    struct Sources {
        InactivityRule& rule;
        store::Database& database;
        const store::ActivityLog& log;
    };
    InactivityJob(Sources sources, config::Settings& settings, store::Accounts& accounts, NoticeMails& mails,
        const Clock& clock, Journal& journal);

    void run();
    /// Disables one account, and tells its user and the administrator.
    void disable(const std::string& user_name);

private:
    struct State {
        DateTime today;
        std::int16_t limit = 0;
        TableMarks tables;
        bool by_last_logon = false;
        bool operator==(const State&) const = default;
    };

    std::optional<State> state(std::int16_t limit);
    void judge(const store::InactiveUser& user, bool held);
    void warn(const store::InactiveUser& user, std::int32_t days_left);
    void tell_held(const InactivityRule::Findings& findings, std::int16_t limit);

    Sources sources_;
    config::Settings& settings_;
    store::Accounts& accounts_;
    NoticeMails& mails_;
    const Clock& clock_;
    Journal& journal_;
    std::optional<State> nobody_due_; // when a run last found nobody
    std::optional<DateTime> told_on_; // the last day on which too many were due
};

} // namespace qz::notify
