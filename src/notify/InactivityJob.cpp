#include "notify/InactivityJob.h"

#include "notify/NoticeText.h"

namespace qz::notify {

InactivityJob::InactivityJob(Sources sources, config::Settings& settings, store::Accounts& accounts,
    NoticeMails& mails, const Clock& clock, Journal& journal)
    : sources_(sources), settings_(settings), accounts_(accounts), mails_(mails), clock_(clock),
      journal_(journal)
{
}

void InactivityJob::run()
{
    const auto limit = settings_.get_ClientInactivityDaysBeforeDisabling();
    if (limit <= 0) {
        return;
    }
    const auto now = state(limit);
    if (now && now == nobody_due_) {
        return;
    }
    nobody_due_.reset();
    const auto findings = sources_.rule.look(limit);
    if (!findings) {
        return;
    }
    for (const auto& user : findings->uncounted) {
        sources_.rule.begin_counting(user);
    }
    if (findings->inactive.empty()) {
        nobody_due_ = now;
    }
    for (const auto& user : findings->inactive) {
        judge(user, findings->held);
    }
    if (findings->held) {
        tell_held(*findings, limit);
    }
}

/// Nothing when the tables cannot be asked.
std::optional<InactivityJob::State> InactivityJob::state(std::int16_t limit)
{
    auto marks = TableMarks::of(sources_.database);
    if (!marks) {
        return std::nullopt;
    }
    marks->log -= sources_.log.rows_written();
    return State{clock_.now().date(), limit, *marks, sources_.rule.by_last_logon()};
}

/// The limit is read anew for each user: a host may change it in the middle of a run, and switch the job off.
void InactivityJob::judge(const store::InactiveUser& user, bool held)
{
    const std::int32_t limit = settings_.get_ClientInactivityDaysBeforeDisabling();
    switch (InactivityRule::step(limit, user.DaysAgo)) {
    case InactivityRule::Step::None:
        break;
    case InactivityRule::Step::Warn:
        warn(user, limit - user.DaysAgo);
        break;
    case InactivityRule::Step::Disable:
        if (!held) {
            disable(user.UserName);
        }
        break;
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

void InactivityJob::tell_held(const InactivityRule::Findings& findings, std::int16_t limit)
{
    const auto today = clock_.now().date();
    if (told_on_ == today) {
        return;
    }
    told_on_ = today;
    const auto what = std::to_string(findings.due) + " of " + std::to_string(findings.accounts)
        + " accounts have been inactive for " + std::to_string(limit) + " days or more";
    journal_.log_own("No account was disabled for inactivity: " + what
        + "; see velto-server inactivity --dry-run, disable them with velto-server inactivity --apply");
    const auto lines =
        text_of({"No VELTO account was disabled, because too many are due at once:", what + ".",
            "Please check the clock of the server and ClientInactivityDaysBeforeDisabling.",
            "To see the accounts       : velto-server inactivity --dry-run",
            "To disable them on purpose: velto-server inactivity --apply"});
    mails_.send_to_administrator(
        "VELTO disabled no accounts", mails_.notice_for(settings_.get_AdminScreenName(), lines));
}

} // namespace qz::notify
