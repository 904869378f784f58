// A mail component that keeps what it is given.
#pragma once

#include "platform/Mailer.h"

#include <memory>
#include <string>
#include <vector>

namespace qz::test {

/// Outlives the mailers that it makes.
class MailRecord {
public:
    std::unique_ptr<platform::Mailer> create(platform::MailerEvents& events)
    {
        events_ = &events;
        return std::make_unique<RecordingMailer>(*this);
    }
    /// What the mail server's refusal comes back as.
    void fail(const std::string& why) { events_->mail_failed(platform::mail_error(why)); }

    std::vector<platform::OutgoingMail> mails;
    bool refuses = false; // every mail, at once

private:
    class RecordingMailer final : public platform::Mailer {
    public:
        explicit RecordingMailer(MailRecord& record) : record_(record) { }
        void send(platform::OutgoingMail mail) override
        {
            if (record_.refuses) {
                throw platform::mail_error("refused");
            }
            record_.mails.push_back(std::move(mail));
        }

    private:
        MailRecord& record_;
    };

    platform::MailerEvents* events_ = nullptr;
};

} // namespace qz::test
