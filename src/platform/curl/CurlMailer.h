// The mail component on libcurl: mails leave one by one on a thread of its own, so that a dead, slow or
// refusing mail server never holds the loop.
#pragma once

#include "platform/EventLoop.h"
#include "platform/Mailer.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace qz::platform {

struct MailLimits {
    std::chrono::milliseconds connect{10'000};  // for the connection, names included
    std::chrono::milliseconds total{30'000};    // for one mail
    std::chrono::milliseconds farewell{10'000}; // for all that is on its way when the mailer goes
    std::size_t waiting = 1000;                 // mails behind the one that is being sent
};

class CurlMailer final : public Mailer {
public:
    /// Starts no thread yet: most runs of a program send no mail.
    /// @param loop, events  must outlive the object, which is destroyed on the loop's thread.
    CurlMailer(EventLoop& loop, MailerEvents& events, const MailLimits& limits = {});
    ~CurlMailer() override;

    void send(OutgoingMail mail) override;

private:
    using Time = std::chrono::steady_clock::time_point;
    class Transfers; // libcurl's side

    void work();
    std::optional<OutgoingMail> next();
    void deliver(const OutgoingMail& mail);
    /// When a mail that is sent since `start` must be through.
    Time end_of_mail(Time start);
    void keep_failure(const EngineError& error);
    void tell_failures();

    EventLoop& loop_;
    MailerEvents& events_;
    const MailLimits limits_;
    std::unique_ptr<Transfers> transfers_;
    std::shared_ptr<CurlMailer*> self_; // events of the loop that come after the mailer find it gone

    std::mutex mutex_; // of what follows, but the thread
    std::condition_variable changed_;
    std::deque<OutgoingMail> waiting_;
    std::vector<EngineError> failures_; // not told yet
    std::optional<Time> farewell_ends_; // set when the mailer goes
    std::thread thread_;
};

} // namespace qz::platform
