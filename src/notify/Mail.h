// SendEmail: the way every mail of the server leaves.
#pragma once

#include "base/Journal.h"
#include "config/Deployment.h"
#include "config/Settings.h"
#include "platform/Mailer.h"
#include "store/Accounts.h"

#include <functional>
#include <memory>
#include <string>

namespace qz::notify {

class Mail final : private platform::MailerEvents {
public:
    using MailerFactory = std::function<std::unique_ptr<platform::Mailer>(platform::MailerEvents&)>;

    /// @param create_mailer  called for the first mail.
    Mail(MailerFactory create_mailer, const store::Accounts& accounts, const config::Settings& settings,
        const config::Deployment& deployment, Journal& journal);

    /// Hands one mail to the mail component, without logging on to the mail server. A blank recipient gets
    /// nothing. A failure is reported under "SendEmail", at once or when the component tells it; the mail is
    /// then lost.
    /// @param from  when it is empty it receives the sender that is used: the administrator's address, or the
    /// server's own where there is none.
    void SendEmail(
        const std::string& recipient, const std::string& subject, const std::string& body, std::string& from);

    /// Gives the mails that are on their way their last, bounded time, and reports which of them failed.
    void finish() { mailer_.reset(); }

private:
    void mail_failed(const EngineError& error) override;

    MailerFactory create_mailer_;
    const store::Accounts& accounts_;
    const config::Settings& settings_;
    const config::Deployment& deployment_;
    Journal& journal_;
    std::unique_ptr<platform::Mailer> mailer_;
};

} // namespace qz::notify
