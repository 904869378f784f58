#include "notify/Mail.h"

#include "base/Guarded.h"
#include "base/Text.h"

#include <utility>

namespace qz::notify {

namespace {

constexpr const char* kRoutine = "SendEmail";
constexpr const char* kDefaultSender = "velto@localhost";

} // namespace

Mail::Mail(MailerFactory create_mailer, const store::Accounts& accounts, const config::Settings& settings,
    const config::Deployment& deployment, Journal& journal)
    : create_mailer_(std::move(create_mailer)), accounts_(accounts), settings_(settings),
      deployment_(deployment), journal_(journal)
{
}

void Mail::SendEmail(
    const std::string& recipient, const std::string& subject, const std::string& body, std::string& from)
{
    guarded(journal_, kRoutine, no_address, [&] {
        const std::string to(trim(recipient));
        if (to.empty()) {
            return;
        }
        if (from.empty()) {
            from = trim(accounts_.Retrieve_UserEmail(settings_.get_AdminScreenName()));
        }
        if (from.empty()) {
            from = kDefaultSender;
        }
        if (!mailer_) {
            mailer_ = create_mailer_(*this);
        }
        mailer_->send({from, to, subject, body, settings_.get_SPTMP_Server(), deployment_.mail_port()});
    });
}

void Mail::mail_failed(const EngineError& error)
{
    journal_.ReportError(kRoutine, error, no_address);
}

} // namespace qz::notify
