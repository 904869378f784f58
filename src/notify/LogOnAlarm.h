// Tells the administrator by e-mail that somebody tried to log on under a name that does not exist.
#pragma once

#include "base/Clock.h"
#include "config/Deployment.h"
#include "config/Settings.h"
#include "notify/NoticeMails.h"
#include "store/Accounts.h"

#include <string>

namespace qz::notify {

class LogOnAlarm {
public:
    LogOnAlarm(NoticeMails& mails, const store::Accounts& accounts, const config::Settings& settings,
        const config::Deployment& deployment, const Clock& clock);

    /// @param password  as it was tried; the safeguard HidePasswords keeps it out of the mail.
    void report(const std::string& screen_name, const std::string& password, const std::string& remote_ip);

private:
    NoticeMails& mails_;
    const store::Accounts& accounts_;
    const config::Settings& settings_;
    const config::Deployment& deployment_;
    const Clock& clock_;
};

} // namespace qz::notify
