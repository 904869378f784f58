#include "base/EngineError.h"
#include "platform/asio/AsioClientSockets.h"
#include "platform/asio/AsioEventLoop.h"
#include "platform/asio/AsioServerSocket.h"
#include "support/LoopRunner.h"
#include "support/LoopbackPeer.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using qz::platform::AsioClientSockets;
using qz::platform::AsioEventLoop;
using qz::platform::AsioServerSocket;
using qz::platform::ConnectionLimits;
using qz::platform::kSocketClosed;
using qz::platform::kSocketClosing;
using qz::platform::kSocketConnected;
using qz::platform::kSocketReserved;
using qz::platform::TurnPhase;
using qz::test::LoopbackPeer;
using qz::test::LoopRunner;

namespace {

std::string unit(const std::string& text)
{
    return "\x02" + text + "\x03";
}

/// Accepts every request on the lowest free number, and writes down what it hears.
struct Host : qz::platform::ServerSocketEvents, qz::platform::ClientSocketEvents {
    virtual ~Host() = default;
    void connection_requested(std::int32_t request) override
    {
        ++requests;
        for (std::int16_t i = 1; accepting && i < sockets->count(); ++i) {
            if (sockets->state(i) == kSocketClosed) {
                sockets->accept(i, request);
                last = i;
                return;
            }
        }
    }
    void data_arrived(std::int16_t socket, const std::string& text) override
    {
        units.emplace_back(socket, text);
        if (on_unit) {
            on_unit(socket, text);
        }
    }
    void closed(std::int16_t socket) override
    {
        losses.push_back(socket);
        if (on_closed) {
            on_closed(socket);
        }
    }

    AsioClientSockets* sockets = nullptr;
    bool accepting = true;
    int requests = 0;
    std::int16_t last = 0;
    std::vector<std::pair<int, std::string>> units;
    std::vector<int> losses;
    std::function<void(std::int16_t, const std::string&)> on_unit;
    std::function<void(std::int16_t)> on_closed;
};

struct AsioSocketsTest : testing::Test {
    AsioSocketsTest() { start({}); }

    void start(const ConnectionLimits& limits)
    {
        sockets = std::make_unique<AsioClientSockets>(loop, host, limits);
        sockets->load(10, false);
        host.sockets = sockets.get();
        server.listen();
    }

    LoopbackPeer connect(int receive_buffer = 0)
    {
        const auto requests = host.requests;
        LoopbackPeer peer(server.local_port(), false, receive_buffer);
        EXPECT_TRUE(runner.until([&] { return host.requests > requests; }));
        return peer;
    }

    bool until_state(std::int16_t socket, std::int16_t state)
    {
        return runner.until([=, this] { return sockets->state(socket) == state; });
    }

    /// Everything that the peer gets until its end comes.
    std::string all_of(LoopbackPeer& peer)
    {
        std::string result;
        EXPECT_TRUE(runner.until([&] {
            result += peer.take();
            return peer.ended();
        }));
        return result;
    }

    AsioEventLoop loop;
    LoopRunner runner{loop};
    Host host;
    AsioServerSocket server{loop, host};
    std::unique_ptr<AsioClientSockets> sockets;
};

} // namespace

TEST_F(AsioSocketsTest, CutsWhatArrivesIntoUnits)
{
    auto peer = connect();
    const auto stream =
        "noise" + unit("gr\xC3\xBC\xC3\x9F") + "\x01\x02 in a frame \x03\x04" + unit("bad\xFF");
    // Every byte is an event of its own, between which the server reads.
    std::size_t sent = 0;
    std::function<void()> send_next = [&] {
        peer.send(stream.substr(sent++, 1));
        if (sent < stream.size()) {
            loop.post(send_next);
        }
    };
    loop.post(send_next);
    ASSERT_TRUE(runner.until([&] { return host.units.size() == 3; }));
    EXPECT_EQ(host.units[0].second, unit("gr\xC3\xBC\xC3\x9F"));
    EXPECT_EQ(host.units[1].second, "\x01\x02 in a frame \x03\x04");
    EXPECT_EQ(host.units[2].second, unit("bad\xEF\xBF\xBD"));
    peer.send(unit("a") + unit("b") + unit("c"));
    EXPECT_TRUE(runner.until([&] { return host.units.size() == 6; })) << "joined by the network";
}

TEST_F(AsioSocketsTest, SendsOnceATurnAfterTheCommit)
{
    struct AtCommit : qz::platform::TurnListener {
        explicit AtCommit(LoopbackPeer& peer) : peer_(peer) { }
        virtual ~AtCommit() = default;
        void turn_ended() override { early_ += std::exchange(queued_, false) ? peer_.available() : 0; }
        LoopbackPeer& peer_;
        bool queued_ = false;
        std::size_t early_ = 0;
    };
    auto peer = connect();
    AtCommit commit(peer);
    loop.add_listener(commit, TurnPhase::Commit);
    host.on_unit = [&](std::int16_t socket, const std::string& text) {
        sockets->send(socket, text);
        sockets->send(socket, text);
        commit.queued_ = true;
        commit.early_ += peer.available();
    };
    peer.send(unit("one") + unit("two"));
    ASSERT_TRUE(runner.until([&] { return peer.available() == 20; }));
    loop.remove_listener(commit);
    EXPECT_EQ(commit.early_, 0U);
    EXPECT_EQ(peer.segments(), 1U);
    EXPECT_EQ(peer.take(), unit("one") + unit("one") + unit("two") + unit("two"));
}

namespace {

struct Commit final : qz::platform::TurnListener {
    explicit Commit(AsioClientSockets& its_sockets) : sockets(its_sockets) { }
    void turn_ended() override
    {
        ++turns;
        if (drops) {
            sockets.drop_turn();
        }
    }
    AsioClientSockets& sockets;
    int turns = 0;
    bool drops = false;
};

void wait_past_event_time()
{
    const auto end = std::chrono::steady_clock::now() + 8ms;
    while (std::chrono::steady_clock::now() < end) { }
}

} // namespace

TEST_F(AsioSocketsTest, ADroppedTurnIsNeverHeardOf)
{
    Commit commit(*sockets);
    loop.add_listener(commit, TurnPhase::Commit);
    auto speaker = connect();
    const auto speaker_number = host.last;
    auto hearer = connect();
    const auto hearer_number = host.last;
    auto idler = connect();
    const auto idler_number = host.last;
    auto reader =
        connect(4096); // does not read: output of an earlier turn is pending when the turn is dropped
    const auto reader_number = host.last;
    for (int i = 0; i < 100 && sockets->unsent(reader_number) == 0; ++i) {
        sockets->send(reader_number, std::string(500'000, 'x'));
        runner.until([turns = commit.turns, &commit] { return commit.turns > turns + 1; });
    }
    ASSERT_GT(sockets->unsent(reader_number), 0U);

    host.on_unit = [&](std::int16_t, const std::string&) {
        sockets->send(hearer_number, unit("secret"));
        sockets->send(reader_number, unit("secret"));
        sockets->close(hearer_number); // a close flushes, but not this
        commit.drops = true;
    };
    speaker.send(unit("go"));
    ASSERT_TRUE(runner.until([&] { return host.losses.size() == 2; }));
    commit.drops = false;
    EXPECT_EQ(all_of(speaker), "");
    EXPECT_EQ(all_of(hearer), "");
    EXPECT_EQ(all_of(reader).find("secret"), std::string::npos);
    std::sort(host.losses.begin(), host.losses.end());
    EXPECT_EQ(host.losses, (std::vector<int>{speaker_number, reader_number}));
    EXPECT_EQ(sockets->state(idler_number), kSocketConnected);
    loop.remove_listener(commit);
}

TEST_F(AsioSocketsTest, WhoSpokeIsDroppedWithEveryTurnThatWorksOnIt)
{
    Commit commit(*sockets);
    loop.add_listener(commit, TurnPhase::Commit);
    auto speaker = connect();
    host.on_unit = [&](std::int16_t, const std::string&) {
        wait_past_event_time();
        loop.yield_to_pending_events(); // ends a turn that is stored
        commit.drops = true;
    };
    speaker.send(unit("go"));
    EXPECT_TRUE(runner.until([&] { return host.losses.size() == 1; }));
    loop.remove_listener(commit);
}

TEST_F(AsioSocketsTest, ASendOutsideATurnGoesOutToo)
{
    auto peer = connect();
    sockets->send(host.last, "session");
    EXPECT_TRUE(runner.until([&] { return peer.take() == "session"; }));
}

TEST_F(AsioSocketsTest, YieldingLetsTheOutputOut)
{
    auto peer = connect();
    std::size_t seen = 0;
    host.on_unit = [&](std::int16_t socket, const std::string&) {
        sockets->send(socket, "early");
        wait_past_event_time();
        loop.yield_to_pending_events();
        seen = peer.available();
    };
    peer.send(unit("x"));
    ASSERT_TRUE(runner.until([&] { return host.units.size() == 1; }));
    EXPECT_EQ(seen, 5U);
}

TEST_F(AsioSocketsTest, NestedArrivalsKeepOrderAndBytes)
{
    auto slow = connect();
    auto other = connect();
    host.on_unit = [&](std::int16_t, const std::string& text) {
        if (text == unit("first")) {
            slow.send(unit("third"));
            other.send(unit(std::string(5000, 'o')));
            wait_past_event_time();
            loop.yield_to_pending_events();
        }
    };
    slow.send(unit("first") + unit("second"));
    ASSERT_TRUE(runner.until([&] { return host.units.size() == 4; }));
    std::vector<std::string> of_slow;
    for (const auto& [socket, text] : host.units) {
        if (socket == 1) {
            of_slow.push_back(text);
        }
    }
    EXPECT_EQ(of_slow, (std::vector{unit("first"), unit("second"), unit("third")}));
}

TEST_F(AsioSocketsTest, WhatIsNotReadWaitsInItsOrder)
{
    auto peer = connect();
    auto other = connect();
    const auto pauses = [&](std::size_t every) {
        host.on_unit = [this, every](std::int16_t socket, const std::string&) {
            if (host.units.size() % every == 0) {
                sockets->set_reading(socket, false);
            }
        };
    };
    pauses(3);
    std::string bytes; // more than one read takes
    for (int i = 0; i < 3000; ++i) {
        bytes += unit("number " + std::to_string(i));
    }
    peer.send(bytes);
    EXPECT_TRUE(runner.until([&] { return host.units.size() == 3; }));
    runner.run_for(2ms);
    EXPECT_EQ(host.units.size(), 3U);
    other.send(unit("x"));
    EXPECT_TRUE(runner.until([&] { return host.units.size() == 4; })) << "others are read";
    host.units.pop_back();
    peer.close();
    pauses(500);
    for (std::size_t expected = 500; expected <= 3000; expected += 500) {
        sockets->set_reading(1, true);
        sockets->set_reading(1, false);
        sockets->set_reading(1, true);
        EXPECT_TRUE(runner.until([&] { return host.units.size() == expected; }));
        runner.run_for(1ms);
        ASSERT_EQ(host.units.size(), expected);
    }
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(host.units[static_cast<std::size_t>(i)].second, unit("number " + std::to_string(i)));
    }
    EXPECT_TRUE(host.losses.empty());
    sockets->set_reading(1, true);
    EXPECT_TRUE(runner.until([&] { return host.losses.size() == 1; })) << "its end comes last";
}

TEST_F(AsioSocketsTest, ASlowReaderIsClosedAndNobodyElse)
{
    auto slow = connect(4096);
    const auto slow_number = host.last;
    auto quick = connect();
    const auto quick_number = host.last;
    std::size_t read = 0;
    std::size_t rounds = 0;
    const auto quick_has_all = [&] {
        read += quick.take().size();
        return read == rounds * 65536;
    };
    ASSERT_TRUE(runner.until([&] {
        if (host.losses.empty() && quick_has_all()) {
            ++rounds;
            sockets->send(slow_number, std::string(65536, 's'));
            sockets->send(quick_number, std::string(65536, 'q'));
        }
        return !host.losses.empty();
    }));
    EXPECT_EQ(host.losses, std::vector<int>{slow_number});
    EXPECT_GT(rounds, 16U) << "one mebibyte may wait";
    EXPECT_EQ(sockets->state(slow_number), kSocketClosed);
    EXPECT_EQ(sockets->state(quick_number), kSocketConnected);
    EXPECT_TRUE(runner.until(quick_has_all));
}

TEST_F(AsioSocketsTest, AReaderThatStallsIsClosedOneThatCreepsIsNot)
{
    start({.unsent = 64U << 20U, .stalled = 200ms});
    auto stalled = connect(4096);
    const auto stalled_number = host.last;
    auto creeping = connect(4096);
    const auto creeping_number = host.last;
    for (const auto number : {stalled_number, creeping_number}) {
        sockets->send(number, std::string(16U << 20U, 'x'));
    }
    EXPECT_TRUE(runner.until([&] {
        creeping.take(1U << 16U);
        return !host.losses.empty();
    }));
    runner.within(300ms, [&] {
        creeping.take(1U << 16U);
        return false;
    });
    EXPECT_EQ(host.losses, std::vector<int>{stalled_number});
    EXPECT_EQ(sockets->state(creeping_number), kSocketConnected);
}

TEST_F(AsioSocketsTest, CloseFlushesFirst)
{
    auto peer = connect(4096);
    const auto number = host.last;
    const std::string text(900'000, 'x');
    host.on_unit = [&](std::int16_t socket, const std::string&) {
        sockets->send(socket, text);
        sockets->close(socket);
        sockets->send(socket, "too late");
        EXPECT_EQ(sockets->state(socket), kSocketClosing);
    };
    peer.send(unit("bye") + unit("never handed up"));
    ASSERT_TRUE(runner.until([&] { return !host.units.empty(); }));
    peer.send(unit("nor this, which no one reads any more"));
    EXPECT_EQ(all_of(peer).size(), text.size());
    EXPECT_FALSE(peer.was_reset());
    peer.close();
    EXPECT_TRUE(until_state(number, kSocketClosed));
    EXPECT_EQ(host.units.size(), 1U);
    EXPECT_TRUE(host.losses.empty()) << "no event for a close that was asked for";
    EXPECT_EQ(sockets->remote_address(number), "127.0.0.1");
}

TEST_F(AsioSocketsTest, CloseTakesLimitedTime)
{
    start({.flush = 100ms, .linger = 50ms});
    auto deaf = connect(4096);
    const auto deaf_number = host.last;
    sockets->send(deaf_number, std::string(1U << 19U, 'x'));
    sockets->close(deaf_number);
    auto lazy = connect(); // takes everything, but never closes its own end
    const auto lazy_number = host.last;
    sockets->send(lazy_number, "bye");
    sockets->close(lazy_number);
    EXPECT_TRUE(until_state(deaf_number, kSocketClosed));
    EXPECT_TRUE(until_state(lazy_number, kSocketClosed));
    EXPECT_EQ(lazy.take(), "bye");
    EXPECT_TRUE(host.losses.empty());
}

TEST_F(AsioSocketsTest, AnUnitThatIsTooLargeEndsTheConnection)
{
    auto peer = connect();
    const auto number = host.last;
    peer.send(unit("fine") + "\x02" + std::string(20000, 'x'));
    ASSERT_TRUE(runner.until([&] { return !host.losses.empty(); }));
    EXPECT_EQ(host.units.size(), 1U);
    EXPECT_EQ(host.losses, std::vector<int>{number});
    EXPECT_EQ(sockets->state(number), kSocketClosed);
    all_of(peer);
}

TEST_F(AsioSocketsTest, APeerMayVanishAtAnyMoment)
{
    const auto reset = [](LoopbackPeer& peer) {
        peer.reset();
    };
    const auto finish = [](LoopbackPeer& peer) {
        peer.close();
    };
    for (const auto& vanish : {std::function<void(LoopbackPeer&)>(reset), {finish}}) {
        for (const auto* before : {"", "\x02half a unit", "\x02whole\x03", "\x02sent after\x03\x02half"}) {
            for (const bool output : {false, true}) {
                host.units.clear();
                host.losses.clear();
                auto peer = connect();
                const auto number = host.last;
                peer.send(before);
                if (output) {
                    sockets->send(number, std::string(100'000, 'x'));
                }
                vanish(peer);
                ASSERT_TRUE(runner.until([&] { return !host.losses.empty(); })) << before;
                ASSERT_TRUE(until_state(number, kSocketClosed)) << before;
                runner.run_for(2ms);
                EXPECT_EQ(host.losses, std::vector<int>{number}) << before;
            }
        }
    }
    LoopbackPeer(server.local_port()).reset(); // gone before it is accepted
    auto peer = connect();
    peer.send(unit("still alive"));
    EXPECT_TRUE(
        runner.until([&] { return !host.units.empty() && host.units.back().second == unit("still alive"); }));
}

TEST_F(AsioSocketsTest, AnEndedPeerStillGetsItsAnswer)
{
    auto peer = connect();
    host.on_unit = [&](std::int16_t socket, const std::string&) {
        sockets->send(socket, "answer");
    };
    host.on_closed = [&](std::int16_t socket) {
        sockets->close(socket);
    };
    peer.send(unit("question"));
    peer.finish_sending();
    EXPECT_EQ(all_of(peer), "answer");
    EXPECT_EQ(host.losses.size(), 1U);
    EXPECT_TRUE(until_state(host.last, kSocketClosed));
}

TEST_F(AsioSocketsTest, ACloseBeforeTheClosedEventTakesItsPlace)
{
    auto first = connect();
    const auto first_number = host.last;
    auto second = connect();
    host.on_unit = [&](std::int16_t, const std::string&) {
        sockets->close(first_number);
    };
    first.reset();
    second.send(unit("close the other"));
    EXPECT_TRUE(until_state(first_number, kSocketClosed));
    runner.run_for(5ms);
    EXPECT_LE(host.losses.size(), 1U);
    EXPECT_EQ(sockets->state(first_number), kSocketClosed);
}

TEST_F(AsioSocketsTest, AFloodDoesNotStarveOthers)
{
    auto flood = connect();
    const auto flood_number = host.last;
    auto quiet = connect();
    std::string units;
    while (units.size() < 400'000) {
        units += unit("x");
    }
    const auto sent = flood.send_some(units);
    quiet.send(unit("one"));
    int before = 0;
    ASSERT_TRUE(runner.until([&] { return host.units.size() > sent / 3; }));
    for (const auto& each : host.units) {
        if (each.first != flood_number) {
            break;
        }
        ++before;
    }
    EXPECT_LE(before, 2 * 16384 / 3 + 2) << "not more than two helpings of the flood come first";
}

TEST_F(AsioSocketsTest, HoldsAThousandHalfOpenConnections)
{
    sockets->load(1100, true);
    std::vector<LoopbackPeer> peers;
    for (int i = 0; i < 1000; ++i) {
        peers.emplace_back(server.local_port());
        peers.back().send("\x02half");
    }
    ASSERT_TRUE(runner.until([&] { return host.requests == 1000; }));
    peers[777].send(" and half\x03");
    ASSERT_TRUE(runner.until([&] { return !host.units.empty(); }));
    EXPECT_EQ(host.units.front().second, unit("half and half"));
    peers.clear();
    EXPECT_TRUE(runner.until([&] { return host.losses.size() == 1000; }));
}

TEST_F(AsioSocketsTest, NumbersAreReusedButNeverTheReservedOne)
{
    EXPECT_EQ(sockets->state(0), kSocketReserved);
    EXPECT_EQ(sockets->state(10), kSocketClosed) << "outside the pool";
    EXPECT_EQ(sockets->state(-1), kSocketClosed);
    sockets->send(0, "to nobody");
    sockets->close(0);
    sockets->send(99, "to nobody");
    EXPECT_EQ(sockets->remote_address(3), "");

    host.accepting = false;
    auto peer = connect();
    host.accepting = true;
    EXPECT_EQ(all_of(peer), "") << "a request that nobody accepts is closed";
    EXPECT_THROW(sockets->accept(1, 12345), qz::EngineError) << "no such request";

    for (int round = 0; round < 3; ++round) {
        auto client = connect();
        EXPECT_EQ(host.last, 1);
        EXPECT_THROW(sockets->accept(1, 1), qz::EngineError) << "in use";
        EXPECT_THROW(sockets->accept(0, 1), qz::EngineError) << "reserved";
        EXPECT_THROW(sockets->accept(10, 1), qz::EngineError) << "outside the pool";
        client.send("\x02left over");
        runner.run_for(2ms);
        sockets->close(1);
        client.close();
        ASSERT_TRUE(until_state(1, kSocketClosed));
    }
    auto fresh = connect();
    fresh.send(unit("mine"));
    ASSERT_TRUE(runner.until([&] { return !host.units.empty(); }));
    EXPECT_EQ(host.units.front().second, unit("mine")) << "nothing of the number's last user";

    sockets->load(32767, true);
    EXPECT_EQ(sockets->count(), 32767);
    EXPECT_EQ(sockets->state(1), kSocketConnected);
}

TEST_F(AsioSocketsTest, ListensOnBothFamiliesAndShowsPlainAddresses)
{
    connect();
    EXPECT_EQ(sockets->remote_address(host.last), "127.0.0.1");
    try {
        LoopbackPeer peer(server.local_port(), true);
        ASSERT_TRUE(runner.until([&] { return host.requests == 2; }));
        EXPECT_EQ(sockets->remote_address(host.last), "::1");
    } catch (const std::system_error&) {
        GTEST_SKIP() << "no IPv6 here";
    }
}

TEST_F(AsioSocketsTest, SaysWhyItCannotListen)
{
    const auto text_of = [&](std::uint16_t port, const std::string& address) -> std::string {
        AsioServerSocket other(loop, host);
        other.set_local_port(port);
        other.set_local_address(address);
        try {
            other.listen();
        } catch (const qz::EngineError& error) {
            EXPECT_NE(error.number(), 0);
            return error.description();
        }
        return {};
    };
    const auto port = std::to_string(server.local_port());
    for (const auto* address : {"", "127.0.0.1"}) {
        const auto text = text_of(server.local_port(), address);
        EXPECT_NE(text.find("port " + port), std::string::npos) << text;
        EXPECT_NE(text.find("choose another ListeningPort"), std::string::npos) << text;
    }
    EXPECT_NE(text_of(0, "not an address").find("ListenAddress"), std::string::npos);
    EXPECT_NE(text_of(0, "203.0.113.7").find("ListenAddress"), std::string::npos);

    server.close();
    EXPECT_EQ(text_of(static_cast<std::uint16_t>(std::stoi(port)), ""), "") << "free again";
}

TEST_F(AsioSocketsTest, OutlivesALackOfDescriptors)
{
    LoopbackPeer peer(server.local_port());
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const int lowest_free = dup(0);
    ::close(lowest_free);
    const rlimit none{static_cast<rlim_t>(lowest_free), limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    runner.run_for(150ms);
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(host.requests, 0);
    const auto used = after.ru_stime.tv_usec - before.ru_stime.tv_usec
        + 1'000'000 * (after.ru_stime.tv_sec - before.ru_stime.tv_sec);
    EXPECT_LT(used, 75'000) << "it must not spin";
    EXPECT_TRUE(runner.until([&] { return host.requests == 1; }));
}

TEST_F(AsioSocketsTest, KnowsAnAddressOfTheMachine)
{
    const auto address = sockets->local_address();
    EXPECT_EQ(address, server.local_address());
    EXPECT_EQ(std::count(address.begin(), address.end(), '.'), 3) << address;
}
