// The mail component: hands one text message to an SMTP server.
#pragma once

#include "base/EngineError.h"

#include <cstdint>
#include <string>

namespace qz::platform {

/// One mail. All texts are UTF-8.
struct OutgoingMail {
    std::string sender;    // one plain address
    std::string recipient; // one plain address
    std::string subject;
    std::string body;   // lines may end with CR LF or LF
    std::string server; // name or IP address of the SMTP server
    std::uint16_t port = 25;
};

/// Heard by whoever sends mails.
class MailerEvents {
public:
    /// A mail that was taken could not be delivered. Told on the loop's thread after `send` has returned, or
    /// by the mailer's destructor.
    virtual void mail_failed(const EngineError& error) = 0;

protected:
    ~MailerEvents() = default; // never deleted through this type
};

/// Delivers without holding the loop. There is no second attempt.
class Mailer {
public:
    Mailer() = default;
    Mailer(const Mailer&) = delete;
    Mailer& operator=(const Mailer&) = delete;
    /// Gives mails that are still on their way a bounded time, and tells which of them failed.
    virtual ~Mailer() = default;

    /// Takes a mail.
    /// @throws EngineError when it is no sound mail (an address that is not one plain address, a line end in
    /// the subject, no server) or too many are waiting.
    virtual void send(OutgoingMail mail) = 0;
};

/// A failure of the mail component.
EngineError mail_error(std::string description);

} // namespace qz::platform
