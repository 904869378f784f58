#include "platform/curl/CurlMailer.h"

#include "platform/curl/MailText.h"
#include "support/LoopRunner.h"
#include "support/SmtpSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace std::string_literals;
using namespace std::chrono_literals;
using qz::EngineError;
using qz::platform::CurlMailer;
using qz::platform::MailLimits;
using qz::platform::OutgoingMail;
using qz::test::SmtpSink;
using testing::HasSubstr;

namespace {

OutgoingMail mail_to(std::uint16_t port)
{
    return {"server@example.org", "anna@example.org", "Hello", "A line\r\n", "127.0.0.1", port};
}

/// A port on which nobody listens while this lives.
class DeadPort {
public:
    DeadPort()
    {
        socklen_t size = sizeof(address_);
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* address = reinterpret_cast<sockaddr*>(&address_);
        if (bind(socket_, address, size) != 0 || getsockname(socket_, address, &size) != 0) {
            throw std::runtime_error("no port can be taken");
        }
    }
    DeadPort(const DeadPort&) = delete;
    DeadPort& operator=(const DeadPort&) = delete;
    ~DeadPort() { close(socket_); }
    std::uint16_t number() const { return ntohs(address_.sin_port); }

private:
    int socket_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address_{};
};

class CurlMailerTest : public testing::Test, public qz::platform::MailerEvents {
protected:
    void mail_failed(const EngineError& error) override { failures.push_back(error.description()); }

    std::optional<std::string> refusal_of(const OutgoingMail& mail)
    {
        try {
            mailer->send(mail);
            return std::nullopt;
        } catch (const EngineError& error) {
            return error.description();
        }
    }
    bool fails_once()
    {
        return runner.until([&] { return failures.size() == 1; });
    }
    void limit(const MailLimits& limits) { mailer.emplace(loop, *this, limits); }

    qz::platform::AsioEventLoop loop;
    qz::test::LoopRunner runner{loop};
    std::vector<std::string> failures;
    std::optional<CurlMailer> mailer{std::in_place, loop, *this};
};

std::map<std::string, std::string> headers_of(const nlohmann::json& mail)
{
    std::map<std::string, std::string> headers;
    for (const auto& header : mail["headers"]) {
        EXPECT_TRUE(headers.emplace(header[0], header[1]).second) << header[0] << " stands twice";
    }
    return headers;
}

} // namespace

TEST_F(CurlMailerTest, DeliversPlainTextAsItIs)
{
    SmtpSink sink;
    auto mail = mail_to(sink.port());
    mail.subject = "VELTO account is expiring!";
    mail.body = ".first\r\n..\r\n.\r\n" + std::string(90, '-') + "\nQUIT\r\n\r\nlast = 5";
    mailer->send(mail);
    const auto received = sink.next_mail();
    EXPECT_EQ(received["sender"], "server@example.org");
    EXPECT_EQ(received["recipients"], std::vector<std::string>{"anna@example.org"});
    EXPECT_EQ(
        received["body"], ".first\r\n..\r\n.\r\n" + std::string(90, '-') + "\r\nQUIT\r\n\r\nlast = 5\r\n");
    const auto headers = headers_of(received);
    EXPECT_EQ(headers.at("From"), "server@example.org");
    EXPECT_EQ(headers.at("To"), "anna@example.org");
    EXPECT_EQ(headers.at("Subject"), mail.subject);
    EXPECT_EQ(headers.at("MIME-Version"), "1.0");
    EXPECT_EQ(headers.at("Content-Type"), "text/plain; charset=\"utf-8\"");
    EXPECT_TRUE(headers.contains("Date"));
    EXPECT_THAT(headers.at("Message-ID"), testing::MatchesRegex("<[0-9a-f]{32}@example.org>"));
}

TEST_F(CurlMailerTest, CodesWhatIsNotAscii)
{
    SmtpSink sink;
    auto mail = mail_to(sink.port());
    mail.subject = "Gr\u00fc\u00dfe = _? ";
    for (int i = 0; i < 40; ++i) {
        mail.subject += "\u4f60\U0001F600";
    }
    mail.body =
        ".\u00e4\r\nequals = sign, blank at the end \r\n.\r\n" + std::string(2000, 'x') + "\u00e4 \xFF";
    mailer->send(mail);
    const auto received = sink.next_mail();
    EXPECT_EQ(headers_of(received).at("Subject"), mail.subject);
    EXPECT_EQ(received["body"],
        ".\u00e4\r\nequals = sign, blank at the end \r\n.\r\n" + std::string(2000, 'x')
            + "\u00e4 \uFFFD\r\n");
    const auto raw = received["raw"].get<std::string>();
    for (std::size_t start = 0; start < raw.size();) {
        const auto end = raw.find("\r\n", start);
        ASSERT_NE(end, std::string::npos);
        EXPECT_LE(end - start, 100U) << raw.substr(start, end - start);
        start = end + 2;
    }
    EXPECT_TRUE(std::all_of(raw.begin(), raw.end(), [](char c) { return c > 0; })) << "bytes of 7 bits only";
}

TEST_F(CurlMailerTest, RefusesWhatWouldBeReadAsMore)
{
    SmtpSink sink;
    const std::string addresses[] = {"", "anna", "@", "a@", "@b", "a@b@c", "a@b c@d", "a@b,c@d", "a@b;c@d",
        "a@b\r\nRCPT TO:<c@d>", "a@b\nX: y", "a@b\0"s, "<a@b>", "a@b> SIZE=1", "Anna <a@b>", "\"a b\"@c",
        "a@b/c", "a@[127.0.0.1]", "a@b:25", "\u00e4@b", "a@b\t", " a@b", std::string(254, 'a') + "@b"};
    for (const auto& address : addresses) {
        auto mail = mail_to(sink.port());
        mail.recipient = address;
        EXPECT_THAT(refusal_of(mail).value_or(""), HasSubstr("not one plain mail address")) << address;
        mail = mail_to(sink.port());
        mail.sender = address;
        EXPECT_THAT(refusal_of(mail).value_or(""), HasSubstr("not one plain mail address")) << address;
    }
    for (const auto& subject : {"a\r\nBcc: c@d"s, "a\n"s, "\r"s, "a\0b"s}) {
        auto mail = mail_to(sink.port());
        mail.subject = subject;
        EXPECT_TRUE(refusal_of(mail));
    }
    for (const auto* server :
        {"", "a b", "a/b", "user@a", "a?b", "a#b", "[::1]", "::1%lo", "a\r\n", "a:25/x"}) {
        auto mail = mail_to(sink.port());
        mail.server = server;
        EXPECT_TRUE(refusal_of(mail)) << server;
    }
    // Only this one arrives, whatever came before it.
    mailer->send(mail_to(sink.port()));
    EXPECT_EQ(sink.next_mail()["body"], "A line\r\n");
    EXPECT_TRUE(failures.empty());
}

TEST_F(CurlMailerTest, TellsOnTheLoopWhyAMailFailed)
{
    const DeadPort dead;
    SmtpSink refusing("refuse");
    SmtpSink dropping("drop");
    for (const auto port : {dead.number(), refusing.port(), dropping.port()}) {
        failures.clear();
        mailer->send(mail_to(port));
        EXPECT_TRUE(failures.empty()) << "told before send has returned";
        ASSERT_TRUE(fails_once()) << port;
        EXPECT_THAT(failures[0], HasSubstr("The mail to anna@example.org was not sent: "));
    }
    SmtpSink accepting; // a failed mail does not spoil the next one
    mailer->send(mail_to(accepting.port()));
    EXPECT_EQ(accepting.next_mail()["sender"], "server@example.org");
}

TEST_F(CurlMailerTest, SlowServerDoesNotHoldTheLoop)
{
    SmtpSink sink("slow");
    limit({.total = 300ms, .waiting = 2});
    mailer->send(mail_to(sink.port()));
    bool ran = false;
    loop.post([&] { ran = true; });
    EXPECT_TRUE(runner.within(200ms, [&] { return ran; }));
    EXPECT_TRUE(failures.empty());
    ASSERT_TRUE(fails_once());
    EXPECT_THAT(failures[0], testing::AnyOf(HasSubstr("timed out"), HasSubstr("timeout")));
}

TEST_F(CurlMailerTest, KeepsNoMoreMailsThanItsLimit)
{
    SmtpSink sink("slow");
    limit({.farewell = 10ms, .waiting = 2});
    int taken = 0;
    std::optional<std::string> refusal;
    while (!refusal && taken < 10) {
        refusal = refusal_of(mail_to(sink.port()));
        taken += refusal ? 0 : 1;
    }
    EXPECT_GE(taken, 2);
    EXPECT_LE(taken, 3) << "one may be on its way already";
    EXPECT_THAT(refusal.value_or(""), HasSubstr("2 mails are waiting"));
    mailer.reset();
    EXPECT_EQ(failures.size(), static_cast<std::size_t>(taken))
        << "every mail that was taken is accounted for";
}

TEST_F(CurlMailerTest, GoesWithinItsTimeAndSendsWhatItCan)
{
    {
        SmtpSink sink;
        mailer->send(mail_to(sink.port()));
        mailer->send(mail_to(sink.port()));
        mailer.reset();
        sink.next_mail();
        EXPECT_EQ(sink.next_mail()["sender"], "server@example.org");
        EXPECT_TRUE(failures.empty());
    }
    SmtpSink slow("slow");
    limit({.farewell = 50ms});
    mailer->send(mail_to(slow.port()));
    const auto start = std::chrono::steady_clock::now();
    mailer.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_EQ(failures.size(), 1U);
    runner.run_for(10ms); // the loop's own event comes too late and finds nobody
    EXPECT_EQ(failures.size(), 1U);
}

TEST(MailText, WritesDatesAndServersByTheirStandards)
{
    auto mail = mail_to(2525);
    const auto time = std::chrono::system_clock::time_point(std::chrono::seconds(1772409605));
    EXPECT_THAT(compose(mail, time, "id"), HasSubstr("Date: Mon, 02 Mar 2026 00:00:05 +0000\r\n"));
    EXPECT_EQ(address_of(mail), "smtp://127.0.0.1:2525");
    mail.server = "::1";
    EXPECT_EQ(address_of(mail), "smtp://[::1]:2525");
}
