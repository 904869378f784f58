// The daily job that warns users of accounts that are not used, and at last disables them.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Settings.h"
#include "notify/NoticeMails.h"
#include "notify/TableMarks.h"
#include "store/Accounts.h"
#include "store/Database.h"
#include "store/LastActivity.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qz::notify {

/// Inactivity is the age of a user's oldest log row, in whole days. ClientInactivityDaysBeforeDisabling is
/// the limit, and a user is warned during the seven days before it; 0 switches the job off.
///
/// The job keeps no list of whom it has told: every run warns and notifies again whoever is due, so without
/// the safeguard that lets it run once a day those mails leave with every tick. What it does remember is a
/// run that found nobody: as long as day, limit and tables are the same, so is the answer, and a run costs no
/// query.
class InactivityJob {
public:
    InactivityJob(config::Settings& settings, store::Database& database, store::Accounts& accounts,
        NoticeMails& mails, const Clock& clock, Journal& journal);

    void run();

private:
    struct State {
        DateTime today;
        std::int16_t limit = 0;
        TableMarks tables;
        bool operator==(const State&) const = default;
    };

    void judge(const store::InactiveUser& user);
    void warn(const store::InactiveUser& user, std::int32_t days_left);
    void disable(const std::string& user_name);

    config::Settings& settings_;
    store::Database& database_;
    store::Accounts& accounts_;
    NoticeMails& mails_;
    const Clock& clock_;
    Journal& journal_;
    store::LastActivity activity_;
    std::optional<State> nobody_due_; // when a run last found nobody
};

} // namespace qz::notify
