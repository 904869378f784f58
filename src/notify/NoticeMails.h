// The server's automatic mails to its users.
#pragma once

#include "base/Clock.h"
#include "config/Settings.h"
#include "notify/Mail.h"
#include "store/Accounts.h"

#include <string>

namespace qz::notify {

class NoticeMails {
public:
    NoticeMails(
        Mail& mail, const store::Accounts& accounts, const config::Settings& settings, const Clock& clock);

    /// A whole notice to this user: greeting, the lines, whom to ask, and the time.
    /// @param lines  each ends with CR LF.
    std::string notice_for(const std::string& user_name, const std::string& lines) const;

    /// Both do nothing when the recipient has no address.
    void send_to(const std::string& user_name, const std::string& subject, const std::string& body);
    void send_to_administrator(const std::string& subject, const std::string& body);

private:
    Mail& mail_;
    const store::Accounts& accounts_;
    const config::Settings& settings_;
    const Clock& clock_;
};

} // namespace qz::notify
