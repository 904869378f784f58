#include "notify/NoticeMails.h"

#include "base/Text.h"
#include "notify/NoticeText.h"

namespace qz::notify {

NoticeMails::NoticeMails(
    Mail& mail, const store::Accounts& accounts, const config::Settings& settings, const Clock& clock)
    : mail_(mail), accounts_(accounts), settings_(settings), clock_(clock)
{
}

std::string NoticeMails::notice_for(const std::string& user_name, const std::string& lines) const
{
    const auto name = settings_.get_AdminScreenName();
    const Administrator administrator{name, accounts_.Retrieve_UserFirstName(name),
        accounts_.Retrieve_UserLastName(name), accounts_.Retrieve_UserEmail(name)};
    return notice(accounts_.Retrieve_UserFirstName(user_name), lines, administrator, clock_.now());
}

void NoticeMails::send_to(const std::string& user_name, const std::string& subject, const std::string& body)
{
    std::string from;
    mail_.SendEmail(accounts_.Retrieve_UserEmail(user_name), single_line(subject), body, from);
}

void NoticeMails::send_to_administrator(const std::string& subject, const std::string& body)
{
    send_to(settings_.get_AdminScreenName(), subject, body);
}

} // namespace qz::notify
