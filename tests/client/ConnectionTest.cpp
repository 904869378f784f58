#include "client/Connection.h"

#include "client/Conversation.h"
#include "platform/SystemClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

using namespace std::chrono_literals;
using namespace qz::client;
using qz::test::from_server;
using testing::ElementsAre;

namespace {

/// A server on 127.0.0.1 that the test plays by hand.
class ScriptedServer {
public:
    ScriptedServer() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(::bind(listener_.number(), generic, size), 0);
        EXPECT_EQ(::getsockname(listener_.number(), generic, &size), 0);
        EXPECT_EQ(::listen(listener_.number(), 4), 0);
        port_ = ntohs(address.sin_port);
    }
    std::uint16_t port() const { return port_; }

    bool accept()
    {
        peer_.reset();
        heard_.clear();
        peer_ = Descriptor(::accept4(listener_.number(), nullptr, nullptr, SOCK_NONBLOCK));
        return peer_.number() >= 0;
    }
    void say(const std::string& text, double number = 7) const
    {
        const auto bytes = from_server(text, number);
        EXPECT_EQ(::send(peer_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(bytes.size()));
    }
    const std::vector<std::string>& heard()
    {
        char bytes[4096];
        for (ssize_t size = 0; (size = ::recv(peer_.number(), bytes, sizeof bytes, 0)) > 0;) {
            received_.append(bytes, static_cast<std::size_t>(size));
        }
        return heard_ = qz::test::said(received_);
    }
    void hang_up()
    {
        peer_.reset();
        received_.clear();
    }

private:
    Descriptor listener_;
    Descriptor peer_;
    std::uint16_t port_ = 0;
    std::string received_;
    std::vector<std::string> heard_;
};

} // namespace

TEST(Connection, TalksOverARealSocketAndComesBack)
{
    ScriptedServer server;
    qz::test::CountingCrypto crypto; // short delays
    const qz::platform::SystemClock clock;
    qz::test::RecordingEvents events;
    Connection connection({"127.0.0.1", server.port()}, {"ann", "secret"}, crypto, clock, events);
    const auto log_on = [&] {
        ASSERT_TRUE(connection.run_until([&] { return server.accept(); }, 10s));
        server.say("session sessionidvalue=42");
        ASSERT_TRUE(connection.run_until([&] { return !server.heard().empty(); }, 10s));
        server.say("logon answer=accepted");
        ASSERT_TRUE(connection.run_until([&] { return connection.core().is_logged_on(); }, 10s));
    };
    connection.start();
    log_on();
    server.say("msg screennamefrom=bob screennameto=ann msg=" + std::string(9000, 'x'), 9);
    ASSERT_TRUE(connection.run_until([&] { return server.heard().size() == 3; }, 10s));
    EXPECT_EQ(server.heard()[1], "receipt sessionidvalue=42 msgid=9");
    EXPECT_EQ(connection.core().send_message({"bob", std::string(20'000, 'y')}).result, SendResult::Sent);
    ASSERT_TRUE(connection.run_until([&] { return server.heard().size() == 4; }, 10s));
    EXPECT_EQ(read_value(server.heard()[3], "msg"), std::string(20'000, 'y'));

    server.hang_up();
    events.take();
    log_on();
    EXPECT_THAT(events.take(), ElementsAre("disconnected|closed||again", "connected", "logged on"));
    ASSERT_TRUE(connection.run_until([&] { return server.heard().size() == 3; }, 10s));
    EXPECT_EQ(server.heard()[1], "receipt sessionidvalue=42 msgid=9") << "nothing had told that it arrived";
    connection.stop();
    EXPECT_EQ(connection.descriptor(), -1);
    EXPECT_FALSE(connection.run_until([] { return false; }, 10s)) << "stopped: there is nothing to wait for";
}

TEST(Connection, AHostThatIsNotThereIsTriedAgain)
{
    qz::test::CountingCrypto crypto; // short delays
    const qz::platform::SystemClock clock;
    qz::test::RecordingEvents events;
    std::uint16_t port = 0;
    {
        const ScriptedServer server; // nobody listens on its port afterwards
        port = server.port();
    }
    for (const auto* const host : {"127.0.0.1", "no such host"}) {
        Connection connection({host, port}, {"ann", "secret"}, crypto, clock, events);
        connection.start();
        ASSERT_TRUE(connection.run_until([&] { return events.lines.size() >= 2; }, 10s));
        EXPECT_EQ(events.lines[1], "disconnected|unreachable||again");
        EXPECT_NE(events.last_end.text.find(host), std::string::npos) << events.last_end.text;
        events.take();
    }
}
