#include "notify/InactivityJob.h"

#include "notify/NoticeText.h"

namespace qz::notify {

namespace {

constexpr std::int32_t kWarningDays = 7;

} // namespace

InactivityJob::InactivityJob(config::Settings& settings, store::Database& database, store::Accounts& accounts,
    NoticeMails& mails, const Clock& clock, Journal& journal)
    : settings_(settings), database_(database), accounts_(accounts), mails_(mails), clock_(clock),
      journal_(journal), activity_(database, journal)
{
}

void InactivityJob::run()
{
    const auto limit = settings_.get_ClientInactivityDaysBeforeDisabling();
    if (limit <= 0) {
        return;
    }
    std::optional<State> state;
    if (const auto marks = TableMarks::of(database_)) {
        state = {clock_.now().date(), limit, *marks};
    }
    if (state && state == nobody_due_) {
        return;
    }
    nobody_due_.reset();
    const auto users = activity_.Retrieve_LastActivity(limit - kWarningDays);
    if (!users) {
        return;
    }
    if (users->empty()) {
        nobody_due_ = state;
    }
    for (const auto& user : *users) {
        judge(user);
    }
}

/// The limit is read anew for each user: a host may change it in the middle of a run, and switch the job off.
void InactivityJob::judge(const store::InactiveUser& user)
{
    const std::int32_t limit = settings_.get_ClientInactivityDaysBeforeDisabling();
    const auto days_left = limit - user.DaysAgo;
    if (limit <= 0 || days_left > kWarningDays) {
        return;
    }
    if (days_left > 0) {
        warn(user, days_left);
    } else {
        disable(user.UserName);
    }
}

void InactivityJob::warn(const store::InactiveUser& user, std::int32_t days_left)
{
    const auto lines =
        text_of({"It looks you are not using VELTO since " + std::to_string(user.DaysAgo) + " days!",
            "Please note in " + std::to_string(days_left)
                + " days your account will be disabled if you will not use it again!"});
    mails_.send_to(user.UserName, "VELTO account is expiring!", mails_.notice_for(user.UserName, lines));
    journal_.log_own("Expiring account warning email sent to " + user.UserName);
}

void InactivityJob::disable(const std::string& user_name)
{
    accounts_.set_ScreenName_Enabled(user_name, false);
    const auto body = mails_.notice_for(
        user_name, text_of({"Your VELTO account has been disabled because of too much inactivity!"}));
    mails_.send_to(user_name, "VELTO account is expired!", body);
    mails_.send_to_administrator("VELTO for " + user_name + " account is expired!", body);
    journal_.log_own("Expired account email sent to " + user_name);
}

} // namespace qz::notify
