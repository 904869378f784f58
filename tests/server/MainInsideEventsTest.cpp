// Hosts that restart or delete Main while it is in the middle of something.
#include "server/Main.h"
#include "store/Statements.h"
#include "support/Conversation.h"
#include "support/LoopRunner.h"
#include "support/LoopbackMachine.h"
#include "support/LoopbackPeer.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

using qz::server::Main;
using qz::server::ServerStatus;
using qz::test::envelope;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class MainInsideEvents : public testing::Test {
protected:
    MainInsideEvents()
    {
        main->Server_Start();
        settle();
        machine.tick();
        events.list.clear();
    }
    void settle() { machine.loop().run_pending(); }
    /// Once, inside the first event that begins like this.
    void on(const std::string& event, const std::function<void()>& act)
    {
        events.on_event = [this, event, act](const std::string& raised) {
            if (raised.starts_with(event)) {
                const auto copy = act; // this function goes with the next line
                events.on_event = nullptr;
                copy();
            }
        };
    }
    void restart()
    {
        main->set_ServerStatus(ServerStatus::Arrested);
        main->Server_Start();
    }

    qz::test::TestMachine machine;
    qz::test::RecordingEvents events;
    std::unique_ptr<Main> main = std::make_unique<Main>(machine, events);
};

const std::string kPreparing = "Log Preparing 100 sockets...";

} // namespace

TEST_F(MainInsideEvents, ARestartWaitsForTheEndOfTheEvent)
{
    auto before = machine.network().connect();
    settle();
    main->Server_End();
    events.list.clear();
    const std::function<void()> restarts = [copy = this] {
        copy->restart();
        EXPECT_THAT(copy->events.list, Not(Contains(kPreparing)));
        EXPECT_EQ(copy->main->get_ServerStatus(), ServerStatus::Arrested);
    };
    events.on_event = [&](const std::string& event) {
        if (event == "ShutDown") {
            restarts();
        }
    };
    machine.tick();
    events.on_event = nullptr;
    const auto list = events.take();
    const auto shut_down = std::find(list.begin(), list.end(), "ShutDown");
    const auto tick = std::find(list.begin(), list.end(), "Tick");
    const auto preparing = std::find(list.begin(), list.end(), kPreparing);
    ASSERT_NE(preparing, list.end());
    EXPECT_TRUE(shut_down < tick && tick < preparing) << "the tick ends before the restart";
    EXPECT_EQ(main->get_ServerStatus(), ServerStatus::Started);
    EXPECT_EQ(std::count(list.begin(), list.end(), kPreparing), 1);
    EXPECT_TRUE(before.ended());
    auto after = machine.network().connect();
    settle();
    EXPECT_TRUE(after.accepted());
    machine.tick();
    EXPECT_THAT(events.list, Contains("Tick"));
}

TEST_F(MainInsideEvents, ARestartThatWaitsIsForgottenWhenTheServerIsEnded)
{
    on("Tick", [this] {
        restart();
        main->Server_End();
    });
    machine.tick();
    EXPECT_THAT(events.list, Contains("ShutDown"));
    EXPECT_THAT(events.list, Not(Contains(kPreparing)));
}

TEST_F(MainInsideEvents, DeletedInTheMiddleItEndsWhatItDoes)
{
    machine.loop().set_events_slow(true); // so that it yields wherever it may
    const struct {
        const char* event;
        std::function<void(qz::test::MemoryPeer& peer)> cause;
    } cases[] = {
        {"Tick",
            [this](auto&) {
                machine.tick();
            }},
        {"Log VELTOServer is shutting",
            [this](auto&) {
                main->ShutDownServer();
                machine.tick();
            }},
        {"ShutDown",
            [this](auto&) {
                main->ShutDownServer();
                machine.tick();
            }},
        {"Connection",
            [this](auto&) {
                auto another = machine.network().connect();
                settle();
            }},
        {"Outgoing",
            [](auto& peer) {
                peer.send(envelope("msg no=session"));
            }},
        {"Ingoing",
            [](auto& peer) {
                peer.send(envelope("lastversion "));
            }},
        {"Error CheckMsgIncomingRules",
            [](auto& peer) {
                peer.send(envelope("lastversion"));
            }},
        {"OnLine",
            [](auto& peer) {
                peer.vanish();
            }},
        {"Log All active",
            [this](auto&) {
                main->CloseAllConnections();
            }},
        {"Log Preparing",
            [this](auto&) {
                bool preserve = false;
                main->LoadSockets(10, preserve);
            }},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.event);
        auto peer = machine.network().connect();
        settle();
        events.list.clear();
        on(each.event, [this] { main.reset(); });
        each.cause(peer);
        settle();
        EXPECT_EQ(main, nullptr);
        ASSERT_FALSE(events.list.empty());
        EXPECT_TRUE(events.list.back().starts_with(each.event)) << "nothing is raised after it";
        EXPECT_THAT(machine.database().rows(qz::store::tables::kLog, {"Action"}).back(),
            HasSubstr("Service is now closing"));
        auto late = machine.network().connect();
        settle();
        EXPECT_FALSE(late.accepted());

        main = std::make_unique<Main>(machine, events);
        main->Server_Start();
        settle();
        machine.tick();
    }
}

TEST_F(MainInsideEvents, DeletedInAnEventOfACallOutsideTheLoopItEndsWithTheCall)
{
    on("Log All active", [this] { main.reset(); });
    main->CloseAllConnections();
    EXPECT_THAT(machine.database().rows(qz::store::tables::kLog, {"Action"}).back(),
        HasSubstr("Service is now closing"));
}

TEST(MainInsideRealEvents, HostAndMachineMayGoWhenTheLoopHasStopped)
{
    for (const auto* event : {"Connection", "Outgoing", "Ingoing", "OnLine"}) {
        SCOPED_TRACE(event);
        auto machine = std::make_unique<qz::test::LoopbackMachine>();
        auto events = std::make_unique<qz::test::RecordingEvents>();
        auto main = std::make_unique<Main>(*machine, *events);
        main->Server_Start();
        qz::test::LoopbackPeer peer(machine->port());
        peer.send(envelope("lastversion ") + envelope("echo "));
        const std::function<void(const std::string&)> leaves = [&](const std::string& raised) {
            if (raised.starts_with(event)) {
                main.reset();
                machine->loop().stop();
                events.reset();
            }
        };
        events->on_event = std::cref(leaves);
        machine->loop().run();
        EXPECT_EQ(main, nullptr);
        machine.reset();
    }
}
