#include "net/SocketPool.h"

#include "support/TestNet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

using qz::test::TestNet;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::int16_t connected(TestNet& net)
{
    return net.client().number();
}

void close(TestNet& net, std::int16_t socket)
{
    net.closer.SocketClosing(socket);
    net.loop.run_pending();
}

std::string offered_id(qz::test::MemoryPeer& peer)
{
    const auto unit = peer.take();
    const std::string key = "sessionidvalue=";
    const auto at = unit.find(key) + key.size();
    return unit.substr(at, unit.find('\x03') - at);
}

} // namespace

TEST(SocketPool, OffersASessionToEveryConnection)
{
    TestNet net;
    net.pool.LoadSockets(100, false);
    auto peer = net.client("198.51.100.7");
    EXPECT_THAT(net.take_notes(), ElementsAre("out", "new 198.51.100.7 on 1"));
    std::vector<std::string> lines;
    for (const auto& line : net.journal.lines) {
        lines.push_back(line.message);
    }
    EXPECT_THAT(lines,
        ElementsAre("Preparing 100 sockets...", "Now available 100 sockets",
            "New connection request on socket 1 from 198.51.100.7"));
    std::set<std::string> ids{offered_id(peer)};
    for (int i = 0; i < 50; ++i) {
        auto other = net.client();
        EXPECT_TRUE(ids.insert(offered_id(other)).second);
    }
    EXPECT_FALSE(ids.contains(""));
}

TEST(SocketPool, AClosedSocketRestsForAMinute)
{
    TestNet net;
    net.pool.LoadSockets(4, false);
    ASSERT_EQ(connected(net), 1);
    ASSERT_EQ(connected(net), 2);
    net.clock.advance(seconds(100));
    close(net, 1);
    net.clock.advance(seconds(60));
    EXPECT_EQ(connected(net), 3) << "60 seconds are not more than 60";
    net.clock.advance(seconds(1));
    EXPECT_EQ(connected(net), 1);
    // The peer's own goodbye lets it rest as well, from then on and not from its connecting.
    close(net, 2);
    net.clock.advance(seconds(30));
    close(net, 1);
    net.clock.advance(seconds(31));
    EXPECT_EQ(connected(net), 2);
    EXPECT_EQ(connected(net), 5) << "1 rests: the pool of 4 grows by 10, its first new number is left out";
    EXPECT_EQ(connected(net), 4);
    EXPECT_EQ(net.pool.get_SocketsCount(), 14);
}

TEST(SocketPool, GrowsByHalfAndAtLeastByTen)
{
    const struct {
        std::int16_t loaded, grown, number;
    } cases[] = {{6, 16, 7}, {9, 19, 10}, {10, 15, 11}, {11, 17, 12}, {13, 19, 14}, {100, 150, 101}};
    for (const auto& each : cases) {
        TestNet net;
        net.pool.LoadSockets(each.loaded, false);
        for (std::int16_t i = 1; i < each.loaded; ++i) {
            ASSERT_EQ(connected(net), i);
        }
        EXPECT_EQ(connected(net), each.number);
        EXPECT_EQ(net.pool.get_SocketsCount(), each.grown);
        EXPECT_EQ(connected(net), each.loaded) << "the number that was left out";
    }
}

TEST(SocketPool, StopsGrowingBy16Bits)
{
    TestNet net;
    net.pool.LoadSockets(100, false);
    for (int i = 0; i < 756; ++i) {
        ASSERT_NE(connected(net), 0) << i;
    }
    EXPECT_EQ(net.pool.get_SocketsCount(), 757);
    EXPECT_THAT(net.journal.failures, IsEmpty());
    EXPECT_EQ(connected(net), 0);
    ASSERT_EQ(net.journal.failures.size(), 1U);
    EXPECT_EQ(net.journal.failures[0].routine, "QZ_WinSock_Server_ConnectionRequest");
    EXPECT_EQ(net.journal.failures[0].number, 6);
    net.pool.LoadSockets(10, false); // a host still may
    EXPECT_EQ(connected(net), 757);
}

TEST(SocketPool, ReusesTheNumberClosedLongestAgo)
{
    TestNet net;
    constexpr std::int16_t count = 656; // the first that cannot grow
    net.pool.LoadSockets(count, false);
    for (std::int16_t i = 1; i < count; ++i) {
        ASSERT_EQ(connected(net), i);
    }
    close(net, 7);
    net.clock.advance(seconds(1));
    close(net, 300);
    close(net, 5);
    net.clock.advance(seconds(1));
    EXPECT_EQ(connected(net), 0) << "without the safeguard";
    EXPECT_EQ(net.journal.failures.size(), 1U);
    net.ini.WriteIniValue("Safeguards", "ReuseRestingSockets", "True");
    EXPECT_EQ(connected(net), 7);
    EXPECT_EQ(connected(net), 0) << "a request of the previous client may still be at work";
    net.clock.advance(seconds(1));
    EXPECT_EQ(connected(net), 5);
    close(net, 7); // which was used again since, so 300 is the one closed longest ago
    EXPECT_EQ(connected(net), 300);
    net.clock.advance(seconds(2));
    EXPECT_EQ(connected(net), 7);
    EXPECT_EQ(connected(net), 0) << "all are in use";
    close(net, 9);
    net.clock.set_now(net.clock.now().plus_seconds(-3600));
    EXPECT_EQ(connected(net), 9) << "the clock stepped back";
    EXPECT_THAT(net.journal.failures, testing::SizeIs(3));
}

TEST(SocketPool, GrowsBeforeItReuses)
{
    TestNet net;
    net.ini.WriteIniValue("Safeguards", "ReuseRestingSockets", "True");
    net.pool.LoadSockets(4, false);
    for (std::int16_t i = 1; i < 4; ++i) {
        ASSERT_EQ(connected(net), i);
    }
    close(net, 2);
    net.clock.advance(seconds(30));
    EXPECT_EQ(connected(net), 5);
}

TEST(SocketPool, StandsAClockThatStepsBack)
{
    TestNet net;
    net.pool.LoadSockets(6, false);
    for (std::int16_t i = 1; i < 6; ++i) {
        ASSERT_EQ(connected(net), i);
    }
    for (std::int16_t i = 1; i < 6; ++i) {
        close(net, i);
    }
    const auto start = net.clock.now();
    net.clock.set_now(start.plus_seconds(61));
    EXPECT_EQ(connected(net), 1);
    net.clock.set_now(start.plus_seconds(10));
    EXPECT_EQ(connected(net), 7) << "2 to 5 rest again";
    net.clock.set_now(start.plus_seconds(100));
    EXPECT_EQ(connected(net), 2) << "and are not forgotten";
}

TEST(SocketPool, TakesWhatAScanWouldTake)
{
    const auto seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    TestNet net;
    net.pool.LoadSockets(40, false);
    std::vector<qz::DateTime> last(40);
    for (int step = 0; step < 400; ++step) {
        net.clock.set_now(net.clock.now().plus_seconds(static_cast<int>(random() % 60) - 25));
        const auto now = net.clock.now();
        if (random() % 2 == 0) {
            const auto socket = static_cast<std::int16_t>(random() % 40);
            if (net.sockets->state(socket) == qz::platform::kSocketConnected) {
                close(net, socket);
                last[static_cast<std::size_t>(socket)] = now;
            }
            continue;
        }
        std::int16_t expected = 0;
        for (std::int16_t i = 1; i < 40 && expected == 0; ++i) {
            const auto used = last[static_cast<std::size_t>(i)];
            if (net.sockets->state(i) == qz::platform::kSocketClosed
                && (used.empty() || seconds_between(used, now) > 60)) {
                expected = i;
            }
        }
        if (expected != 0) {
            ASSERT_EQ(connected(net), expected) << "step " << step;
            last[static_cast<std::size_t>(expected)] = now;
        }
    }
}

TEST(SocketPool, TellsFreeSocketsAndAddresses)
{
    TestNet net;
    net.pool.LoadSockets(5, false);
    auto local = net.client("127.0.0.1");
    auto remote = net.client("198.51.100.7");
    EXPECT_EQ(net.pool.get_RemoteAddress(1), "192.0.2.1") << "the server's own address";
    EXPECT_EQ(net.pool.get_RemoteAddress(2), "198.51.100.7");
    EXPECT_EQ(net.pool.get_RemoteAddress(99), "");
    EXPECT_FALSE(net.pool.SocketFree(0)) << "nobody's";
    EXPECT_FALSE(net.pool.SocketFree(1));
    EXPECT_TRUE(net.pool.SocketFree(3));
    net.connections.fill("ann", "5", 3, "192.0.2.9", {});
    EXPECT_FALSE(net.pool.SocketFree(3));
    EXPECT_FALSE(net.pool.SessionIDFree("5"));
    EXPECT_TRUE(net.pool.SessionIDFree("6"));
    net.pool.LoadSockets(-3, false);
    EXPECT_EQ(net.pool.get_SocketsCount(), 5);
}
