#include "platform/curl/CurlMailer.h"

#include "base/Text.h"
#include "platform/LateLibrary.h"
#include "platform/curl/MailText.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <curl/curl.h>
#include <functional>
#include <random>
#include <system_error>
#include <utility>

namespace qz::platform {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// The library, with the ABI that it has had since 2006. Most runs of a program send no mail.
struct Curl {
    LateLibrary library{"libcurl.so.4"};
    LateFunction<decltype(curl_easy_cleanup)> easy_cleanup{library, "curl_easy_cleanup"};
    LateFunction<decltype(curl_easy_init)> easy_init{library, "curl_easy_init"};
    LateFunction<decltype(curl_easy_setopt)> easy_setopt{library, "curl_easy_setopt"};
    LateFunction<decltype(curl_easy_strerror)> easy_strerror{library, "curl_easy_strerror"};
    LateFunction<decltype(curl_global_init)> global_init{library, "curl_global_init"};
    LateFunction<decltype(curl_multi_add_handle)> multi_add_handle{library, "curl_multi_add_handle"};
    LateFunction<decltype(curl_multi_cleanup)> multi_cleanup{library, "curl_multi_cleanup"};
    LateFunction<decltype(curl_multi_info_read)> multi_info_read{library, "curl_multi_info_read"};
    LateFunction<decltype(curl_multi_init)> multi_init{library, "curl_multi_init"};
    LateFunction<decltype(curl_multi_perform)> multi_perform{library, "curl_multi_perform"};
    LateFunction<decltype(curl_multi_poll)> multi_poll{library, "curl_multi_poll"};
    LateFunction<decltype(curl_multi_remove_handle)> multi_remove_handle{library, "curl_multi_remove_handle"};
    LateFunction<decltype(curl_multi_wakeup)> multi_wakeup{library, "curl_multi_wakeup"};
    LateFunction<decltype(curl_slist_append)> slist_append{library, "curl_slist_append"};
    LateFunction<decltype(curl_slist_free_all)> slist_free_all{library, "curl_slist_free_all"};
};

const Curl& curl()
{
    try {
        static const Curl kCurl;
        return kCurl;
    } catch (const std::system_error& error) {
        throw mail_error(std::string("Mails need the library libcurl; install the package libcurl4 (")
            + error.what() + ")");
    }
}

struct EasyCleanup {
    void operator()(CURL* easy) const { curl().easy_cleanup(easy); }
};
struct MultiCleanup {
    void operator()(CURLM* multi) const { curl().multi_cleanup(multi); }
};
struct ListCleanup {
    void operator()(curl_slist* list) const { curl().slist_free_all(list); }
};

void initialise_library()
{
    static const CURLcode kResult = curl().global_init(CURL_GLOBAL_DEFAULT);
    if (kResult != CURLE_OK) {
        throw mail_error(curl().easy_strerror(kResult));
    }
}

/// 128 random bits.
std::string unique_id()
{
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::random_device device;
    std::string id;
    for (int i = 0; i < 32; ++i) {
        id += kDigits[device() % kDigits.size()];
    }
    return id;
}

std::size_t read_text(char* buffer, std::size_t size, std::size_t count, void* rest_of_text)
{
    auto& rest = *static_cast<std::string_view*>(rest_of_text);
    const auto taken = (std::min)(size * count, rest.size());
    std::memcpy(buffer, rest.data(), taken);
    rest.remove_prefix(taken);
    return taken;
}

using End = std::function<steady_clock::time_point()>;

/// Ends a transfer that is out of time.
int is_past(void* end, curl_off_t /*to_get*/, curl_off_t /*got*/, curl_off_t /*to_put*/, curl_off_t /*put*/)
{
    return steady_clock::now() >= (*static_cast<const End*>(end))() ? 1 : 0;
}

} // namespace

/// One transfer at a time. All but `wake` is for the mailer's thread.
class CurlMailer::Transfers {
public:
    Transfers()
    {
        initialise_library();
        multi_.reset(curl().multi_init());
        if (!multi_) {
            throw runtime_error(RuntimeError::OutOfMemory);
        }
    }

    /// Hands the message to the server.
    /// @param end  asked again and again: the moment at which to give up.
    void run(const OutgoingMail& mail, const std::string& text, const MailLimits& limits, const End& end)
    {
        const std::unique_ptr<CURL, EasyCleanup> easy(curl().easy_init());
        const std::unique_ptr<curl_slist, ListCleanup> recipients(
            curl().slist_append(nullptr, mail.recipient.c_str()));
        if (!easy || !recipients) {
            throw runtime_error(RuntimeError::OutOfMemory);
        }
        std::string_view rest = text;
        error_.front() = '\0';
        set(easy.get(), CURLOPT_URL, address_of(mail).c_str());
        set(easy.get(), CURLOPT_PROTOCOLS_STR, "smtp");
        set(easy.get(), CURLOPT_PROXY, ""); // whatever the environment says
        set(easy.get(), CURLOPT_NOSIGNAL, 1L);
        set(easy.get(), CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits.connect.count()));
        set(easy.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(limits.total.count()));
        set(easy.get(), CURLOPT_FORBID_REUSE, 1L);
        set(easy.get(), CURLOPT_QUICK_EXIT, 1L); // does not wait for a name server when given up
        set(easy.get(), CURLOPT_ERRORBUFFER, error_.data());
        set(easy.get(), CURLOPT_MAIL_FROM, mail.sender.c_str());
        set(easy.get(), CURLOPT_MAIL_RCPT, recipients.get());
        set(easy.get(), CURLOPT_READFUNCTION, read_text);
        set(easy.get(), CURLOPT_READDATA, &rest);
        set(easy.get(), CURLOPT_UPLOAD, 1L);
        set(easy.get(), CURLOPT_NOPROGRESS, 0L);
        set(easy.get(), CURLOPT_XFERINFOFUNCTION, is_past);
        set(easy.get(), CURLOPT_XFERINFODATA, &end);
        curl().multi_add_handle(multi_.get(), easy.get());
        const auto result = wait(end);
        curl().multi_remove_handle(multi_.get(), easy.get());
        if (result != CURLE_OK) {
            throw mail_error("The mail to " + mail.recipient + " was not sent: " + reason(result));
        }
    }

    void wake() { curl().multi_wakeup(multi_.get()); }

private:
    template <typename Value> static void set(CURL* easy, CURLoption option, Value value)
    {
        const auto code = curl().easy_setopt(easy, option, value);
        if (code != CURLE_OK) {
            throw mail_error(curl().easy_strerror(code));
        }
    }

    /// Giving up is left to the library, which asks `is_past`: a transfer that is taken from it instead would
    /// be ended as if it were complete, and wait for the server's answer.
    CURLcode wait(const End& end)
    {
        for (;;) {
            int running = 0;
            curl().multi_perform(multi_.get(), &running);
            int waiting = 0;
            if (const auto* message = curl().multi_info_read(multi_.get(), &waiting)) {
                return message->data.result;
            }
            const auto left = std::chrono::ceil<milliseconds>(end() - steady_clock::now());
            const auto pause = (std::max)(left, milliseconds(1));
            curl().multi_poll(multi_.get(), nullptr, 0, static_cast<int>(pause.count()), nullptr);
        }
    }

    std::string reason(CURLcode result) const
    {
        if (result == CURLE_ABORTED_BY_CALLBACK) {
            return "it timed out";
        }
        return printable(error_.front() == '\0' ? curl().easy_strerror(result) : error_.data());
    }

    std::unique_ptr<CURLM, MultiCleanup> multi_;
    std::array<char, CURL_ERROR_SIZE> error_{};
};

CurlMailer::CurlMailer(EventLoop& loop, MailerEvents& events, const MailLimits& limits)
    : loop_(loop), events_(events), limits_(limits), self_(std::make_shared<CurlMailer*>(this))
{
}

CurlMailer::~CurlMailer()
{
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        farewell_ends_ = steady_clock::now() + limits_.farewell;
    }
    changed_.notify_one();
    transfers_->wake();
    thread_.join();
    tell_failures();
}

void CurlMailer::send(OutgoingMail mail)
{
    require_sound(mail);
    if (!thread_.joinable()) {
        transfers_ = std::make_unique<Transfers>();
        thread_ = std::thread([this] { work(); });
    }
    {
        const std::lock_guard lock(mutex_);
        if (waiting_.size() >= limits_.waiting) {
            throw mail_error("The mail to " + mail.recipient
                + " was not sent: " + std::to_string(waiting_.size()) + " mails are waiting already");
        }
        waiting_.push_back(std::move(mail));
    }
    changed_.notify_one();
}

void CurlMailer::work()
{
    for (auto mail = next(); mail; mail = next()) {
        try {
            deliver(*mail);
        } catch (...) { // an exception must not leave the thread; this one is told on the loop
            keep_failure(current_error());
        }
    }
}

/// Waits for a mail. Nothing when the mailer goes and no mail is left.
std::optional<OutgoingMail> CurlMailer::next()
{
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !waiting_.empty() || farewell_ends_; });
    if (waiting_.empty()) {
        return std::nullopt;
    }
    auto mail = std::move(waiting_.front());
    waiting_.pop_front();
    return mail;
}

void CurlMailer::deliver(const OutgoingMail& mail)
{
    const auto start = steady_clock::now();
    const auto text = compose(mail, std::chrono::system_clock::now(), unique_id());
    transfers_->run(mail, text, limits_, [&] { return end_of_mail(start); });
}

CurlMailer::Time CurlMailer::end_of_mail(Time start)
{
    const std::lock_guard lock(mutex_);
    const auto end = start + limits_.total;
    return farewell_ends_ ? (std::min)(end, *farewell_ends_) : end;
}

void CurlMailer::keep_failure(const EngineError& error)
{
    const std::lock_guard lock(mutex_);
    failures_.push_back(error);
    loop_.post([weak = std::weak_ptr(self_)] {
        if (const auto self = weak.lock()) {
            (*self)->tell_failures();
        }
    });
}

void CurlMailer::tell_failures()
{
    std::vector<EngineError> failures;
    {
        const std::lock_guard lock(mutex_);
        failures.swap(failures_);
    }
    for (const auto& failure : failures) {
        events_.mail_failed(failure);
    }
}

} // namespace qz::platform
