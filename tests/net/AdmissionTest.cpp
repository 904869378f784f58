// The caps on connections and on what they send, on a whole engine.
#include "net/Admission.h"

#include "net/AddressKey.h"
#include "support/Conversation.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace std::chrono_literals;
using qz::net::address_key;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class AdmissionTest : public testing::Test {
protected:
    AdmissionTest() { server.start(); }

    void set(const char* section, const char* key, const char* value)
    {
        server.engine.ini.WriteIniValue(section, key, value);
    }
    bool comes_in(const std::string& address)
    {
        peers.push_back(server.client(address));
        return peers.back().accepted();
    }
    std::vector<std::string> lines(const std::string& prefix)
    {
        return server.events.take_starting("Log " + prefix);
    }

    qz::test::TestEngine server;
    std::vector<qz::test::MemoryPeer> peers;
};

} // namespace

TEST(AddressKey, CountsAnIpv6NetworkAsOne)
{
    for (const auto* same :
        {"2001:db8::1", "2001:DB8:0:0:ffff:1:2:3", "2001:0db8:0000:0000::", "2001:db8::1%eth0"}) {
        EXPECT_EQ(address_key(same), "2001:db8:0:0::/64") << same;
    }
    EXPECT_EQ(address_key("2001:db8:1:2:3:4:5:6"), "2001:db8:1:2::/64");
    EXPECT_EQ(address_key("::1"), "0:0:0:0::/64");
    EXPECT_EQ(address_key("::ffff:192.0.2.7"), "192.0.2.7");
    for (const auto* other : {"192.0.2.7", "", "somebody"}) {
        EXPECT_EQ(address_key(other), other);
    }
    for (const auto* odd :
        {":", "::", ":::", "1:2:3:4:5:6:7:8:9::1:2:3:4:5:6:7:8:9", "::1:2:3:4:5:6:7:8:9"}) {
        EXPECT_THAT(address_key(odd), testing::EndsWith("::/64")) << odd;
    }
}

TEST_F(AdmissionTest, CapsConnectionsFromOneAddress)
{
    set("Transport", "MaxConnectionsPerAddress", "2");
    EXPECT_TRUE(comes_in("192.0.2.7"));
    EXPECT_TRUE(comes_in("192.0.2.7"));
    EXPECT_FALSE(comes_in("192.0.2.7"));
    EXPECT_FALSE(comes_in("192.0.2.7"));
    EXPECT_TRUE(comes_in("192.0.2.8"));
    EXPECT_THAT(lines("Connections refused"),
        ElementsAre("Log Connections refused: 1, the last one from 192.0.2.7 because "
                    "MaxConnectionsPerAddress is reached"));
    peers.front().vanish();
    server.settle();
    EXPECT_TRUE(comes_in("192.0.2.7"));
    server.machine.clock().advance(10s);
    EXPECT_FALSE(comes_in("192.0.2.7"));
    EXPECT_THAT(lines("Connections refused: 2"), SizeIs(1)) << "what was not logged is counted";
    set("Transport", "MaxConnectionsPerAddress", "0");
    EXPECT_TRUE(comes_in("192.0.2.7"));
}

TEST_F(AdmissionTest, CapsAllConnections)
{
    set("Transport", "MaxConnections", "2");
    EXPECT_TRUE(comes_in("192.0.2.7"));
    EXPECT_TRUE(comes_in("192.0.2.8"));
    EXPECT_FALSE(comes_in("192.0.2.9"));
    peers.front().vanish();
    server.settle();
    EXPECT_TRUE(comes_in("192.0.2.9"));
}

TEST_F(AdmissionTest, CapsNewConnectionsASecond)
{
    const auto come_in = [&](const std::string& address, int tries) {
        int count = 0;
        for (; tries > 0; --tries) {
            count += comes_in(address) ? 1 : 0;
        }
        peers.clear();
        return count;
    };
    EXPECT_EQ(come_in("192.0.2.7", 50), 50) << "without the setting";
    set("Transport", "ConnectionsPerSecond", "5");
    EXPECT_EQ(come_in("192.0.2.7", 50), 20) << "four seconds' worth at once";
    EXPECT_EQ(come_in("192.0.2.8", 1), 1);
    EXPECT_THAT(lines("Connections refused"),
        ElementsAre("Log Connections refused: 1, the last one from 192.0.2.7 because ConnectionsPerSecond is "
                    "reached"));
    for (int second = 0; second < 6; ++second) {
        server.machine.clock().advance(1s);
        EXPECT_EQ(come_in("192.0.2.7", 50), 5) << "refused ones do not count";
    }
    server.machine.clock().advance(3s);
    EXPECT_EQ(come_in("192.0.2.7", 50), 15);
    server.machine.clock().advance(1min);
    EXPECT_EQ(come_in("192.0.2.7", 50), 20) << "no more than at the start";
    // A refusal for another reason leaves the rate alone.
    set("Transport", "MaxConnectionsPerAddress", "1");
    server.machine.clock().advance(1min);
    EXPECT_TRUE(comes_in("2001:db8::1"));
    for (int i = 0; i < 30; ++i) {
        EXPECT_FALSE(comes_in("2001:db8::2"));
    }
    server.engine.ini.DeleteIniEntry("Transport", "MaxConnectionsPerAddress");
    EXPECT_EQ(come_in("2001:db8::3", 50), 19) << "one network is one address";
}

TEST_F(AdmissionTest, ClosesWhoDoesNotLogOnInTime)
{
    set("Transport", "LogonSeconds", "60");
    auto ann = server.client_on_line("ann", "1");
    auto idle = server.client();
    server.machine.clock().advance(30s);
    auto later = server.client();
    server.machine.tick(2);
    server.machine.clock().advance(29s);
    server.machine.tick();
    EXPECT_FALSE(idle.ended());
    server.machine.clock().advance(1s);
    server.events.list.clear();
    server.machine.tick();
    EXPECT_TRUE(idle.ended());
    EXPECT_FALSE(later.ended());
    EXPECT_FALSE(ann.ended());
    EXPECT_THAT(lines("Socket "),
        ElementsAre("Log Socket " + std::to_string(idle.number()) + " closed: no logon within 60 seconds"));
    server.engine.ini.DeleteIniEntry("Transport", "LogonSeconds");
    server.machine.clock().advance(1h);
    server.machine.tick();
    EXPECT_FALSE(later.ended());
}

TEST_F(AdmissionTest, ReadsMoreSlowlyFromWhoSendsTooFast)
{
    set("Safeguards", "MessagesPerSecond", "10");
    server.machine.tick(2);
    auto fast = server.client_on_line("ann", "7");
    auto other = server.client_on_line("bob", "8");
    const auto echo = qz::test::envelope("echo sessionidvalue=7");
    std::string many;
    for (int i = 0; i < 50; ++i) {
        many += echo;
    }
    server.events.list.clear();
    fast.send(many, 100);
    other.send(qz::test::envelope("echo sessionidvalue=8"));
    server.settle();
    EXPECT_THAT(qz::test::messages_in(fast.take()), SizeIs(20)) << "two seconds' worth at once";
    EXPECT_THAT(qz::test::messages_in(other.take()), SizeIs(1));
    EXPECT_THAT(lines("Socket "), ElementsAre(HasSubstr("sends more than MessagesPerSecond")));
    server.machine.tick();
    EXPECT_THAT(qz::test::messages_in(fast.take()), IsEmpty());
    std::size_t answered = 20;
    for (int seconds = 1; seconds <= 3; ++seconds) {
        server.machine.clock().advance(1s);
        server.machine.tick();
        answered += qz::test::messages_in(fast.take()).size();
        EXPECT_NEAR(static_cast<double>(answered), 20 + 10 * seconds, 1);
    }
    server.engine.ini.DeleteIniEntry("Safeguards", "MessagesPerSecond");
    server.machine.tick();
    answered += qz::test::messages_in(fast.take()).size();
    EXPECT_EQ(answered, 50U) << "nothing is lost";
    fast.send(many);
    server.settle();
    EXPECT_THAT(qz::test::messages_in(fast.take()), SizeIs(50));
    EXPECT_FALSE(fast.ended());
}
