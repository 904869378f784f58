#include "notify/LogOnAlarm.h"

#include "base/Secrets.h"
#include "base/Text.h"
#include "notify/NoticeText.h"

namespace qz::notify {

LogOnAlarm::LogOnAlarm(NoticeMails& mails, const store::Accounts& accounts, const config::Settings& settings,
    const config::Deployment& deployment, const Clock& clock)
    : mails_(mails), accounts_(accounts), settings_(settings), deployment_(deployment), clock_(clock)
{
}

/// Name and password come from a stranger: each stays on its line.
void LogOnAlarm::report(
    const std::string& screen_name, const std::string& password, const std::string& remote_ip)
{
    const auto administrator = settings_.get_AdminScreenName();
    const auto shown_password =
        deployment_.hide_passwords() ? std::string(kHiddenPassword) : single_line(password);
    const auto lines = text_of({greeting(accounts_.Retrieve_UserFirstName(administrator)), separator(),
        "Somebody is trying to access to VELTO server using the following screen name:",
        "Screen name   : " + single_line(screen_name), "Password      : " + shown_password,
        "Remote IP     : " + remote_ip, now_line(clock_.now())});
    mails_.send_to_administrator("Tentative of access for a not exsting user!", lines + separator());
}

} // namespace qz::notify
