// The sockets in memory keep the contract of the real ones, where other tests lean on it.
#include "support/MemorySockets.h"
#include "support/ManualClock.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using qz::platform::kSocketClosed;
using qz::platform::kSocketClosing;
using qz::platform::kSocketConnected;
using qz::platform::kSocketReserved;

namespace {

struct MemorySocketsTest : testing::Test, qz::platform::ServerSocketEvents, qz::platform::ClientSocketEvents {
    void connection_requested(std::int32_t request) override
    {
        if (accepting) {
            sockets->accept(++last, request);
        }
    }
    void data_arrived(std::int16_t socket, const std::string& text) override
    {
        units.push_back(text);
        if (on_unit) {
            on_unit(socket);
        }
    }
    void closed(std::int16_t socket) override { losses.push_back(socket); }

    MemorySocketsTest()
    {
        sockets->load(10, false);
        server->listen();
    }

    qz::test::MemoryPeer connected()
    {
        auto peer = network.connect();
        loop.run_pending();
        EXPECT_TRUE(peer.accepted());
        return peer;
    }

    bool accepting = true;
    std::int16_t last = 0;
    std::vector<std::string> units;
    std::vector<int> losses;
    std::function<void(std::int16_t)> on_unit;
    qz::test::ManualLoop loop;
    qz::test::ManualClock clock;
    qz::test::MemoryNetwork network{loop, clock};
    std::unique_ptr<qz::platform::ServerSocket> server = network.create_server_socket(*this);
    std::unique_ptr<qz::platform::ClientSockets> sockets = network.create_client_sockets(*this);
};

} // namespace

TEST_F(MemorySocketsTest, CutsUnitsAndWritesOnceATurn)
{
    auto peer = connected();
    on_unit = [&](std::int16_t socket) {
        sockets->send(socket, "\x02one\x03");
        sockets->send(socket, "\x02two\x03");
    };
    peer.send("noise\x02hello\x03", 1);
    loop.run_pending();
    EXPECT_EQ(units, std::vector<std::string>{"\x02hello\x03"});
    EXPECT_EQ(peer.writes(), 1);
    EXPECT_EQ(peer.take_units(), (std::vector<std::string>{"\x02one\x03", "\x02two\x03"}));
}

TEST_F(MemorySocketsTest, ClosesAfterTheFlushWithoutAnEvent)
{
    auto peer = connected();
    on_unit = [&](std::int16_t socket) {
        sockets->send(socket, "bye");
        sockets->close(socket);
        EXPECT_EQ(sockets->state(socket), kSocketClosing);
    };
    peer.send("\x02 1 \x03\x02 2 \x03");
    loop.run_pending();
    EXPECT_EQ(units.size(), 1U);
    EXPECT_EQ(peer.take(), "bye");
    EXPECT_TRUE(peer.ended());
    EXPECT_EQ(sockets->state(1), kSocketClosed);
    EXPECT_EQ(sockets->remote_address(1), "192.0.2.10");
    EXPECT_TRUE(losses.empty());
}

TEST_F(MemorySocketsTest, TellsOnceThatAPeerIsGone)
{
    auto vanishing = connected();
    sockets->send(1, "lost");
    vanishing.vanish();
    auto finishing = connected();
    finishing.send("\x02half");
    finishing.finish();
    auto flooding = connected();
    flooding.send("\x02" + std::string(20000, 'x'), 999);
    loop.run_pending();
    EXPECT_EQ(losses, (std::vector<int>{1, 2, 3}));
    for (std::int16_t number = 1; number <= 3; ++number) {
        EXPECT_EQ(sockets->state(number), kSocketClosed);
    }
}

TEST_F(MemorySocketsTest, GivesUpAPeerThatTakesNothing)
{
    auto full = connected();
    full.stall();
    sockets->send(1, std::string(1U << 20U, 'x'));
    loop.run_pending();
    EXPECT_EQ(sockets->state(1), kSocketConnected);
    sockets->send(1, "x");
    loop.run_pending();
    EXPECT_EQ(losses, std::vector<int>{1});

    auto slow = connected();
    slow.stall();
    sockets->send(2, "x");
    loop.run_pending();
    clock.advance(std::chrono::seconds(29));
    loop.run_pending();
    EXPECT_EQ(losses.size(), 1U);
    clock.advance(std::chrono::seconds(1));
    loop.run_pending();
    EXPECT_EQ(losses, (std::vector<int>{1, 2}));
}

TEST_F(MemorySocketsTest, DropsARequestThatNobodyAccepts)
{
    accepting = false;
    const auto refused = network.connect();
    loop.run_pending();
    EXPECT_TRUE(refused.ended());
    EXPECT_FALSE(refused.accepted());
    EXPECT_EQ(sockets->state(0), kSocketReserved);
    EXPECT_ANY_THROW(sockets->accept(0, 1));
}

TEST(ManualLoop, YieldsOnlyWhenEventsAreSlowAndOnce)
{
    qz::test::ManualLoop loop;
    std::string notes;
    const std::function<void()> event = [&] {
        notes += '[';
        loop.yield_to_pending_events();
        notes += ']';
    };
    loop.post(event);
    loop.post(event);
    loop.run_pending();
    EXPECT_EQ(notes, "[][]");
    loop.set_events_slow(true);
    for (int i = 0; i < 3; ++i) {
        loop.post(event);
    }
    loop.run_pending();
    EXPECT_EQ(notes, "[][][[][]]");
}
