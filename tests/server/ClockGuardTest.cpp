// What a wrong clock of the machine may not do to a running server, and to one that starts with it.
#include "store/Statements.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace qz::store::tables;
using namespace std::chrono_literals;
using qz::test::TestEngine;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Texts = std::vector<std::string>;

namespace {

constexpr std::int64_t kDay = 86400;

/// A message to somebody off line that waits for an hour.
void queue_message(qz::server::Engine& engine, qz::DateTime now)
{
    qz::queue::NewMessage message;
    message.sender = "ann";
    message.recipient = "bob";
    message.text = "x";
    message.msg_id = 7;
    message.expiration_time = now.plus_seconds(3600);
    engine.message_queue.QueueMessage_Put(message, false);
}

class ClockGuardTest : public testing::Test {
protected:
    ClockGuardTest()
    {
        for (const auto* safeguard :
            {"ClockGuard", "InactivityGuard", "InactivityByLastLogon", "DailyJobsOncePerDay"}) {
            set("Safeguards", safeguard, "True");
        }
        set("General SetUp", "ClientInactivityDaysBeforeDisabling", "30");
    }
    /// Three users who have logged on today, and a message that waits for an hour.
    void start()
    {
        for (const auto* name : {"ann", "bob", "carl"}) {
            auto& database = server->engine.database;
            qz::test::add_row(database, kUsers, {{"UserName", name}});
            qz::test::add_row(database, kLastLogOn, {{"UserName", name}, {"LogOnTime", now()}});
        }
        server->start();
        queue_message(server->engine, now());
        server->settle();
    }
    void step(std::int64_t days) { clock().set_now(now().plus_seconds(days * kDay)); }
    /// Housekeeping for so long, with a tick each time that the step has passed.
    void run_for(std::chrono::seconds time, std::chrono::seconds each)
    {
        for (; time > 0s; time -= each) {
            clock().advance(each);
            server->machine.tick();
        }
    }
    Texts enabled()
    {
        Texts names;
        server->engine.directory.SetUsers();
        for (const auto& user : server->engine.directory.users()) {
            if (user.AccountActive) {
                names.push_back(user.UserName);
            }
        }
        return names;
    }
    std::size_t waiting() { return server->engine.message_queue.get_QueueMessages().size(); }
    void set(const char* section, const char* key, const char* value)
    {
        server->engine.ini.WriteIniValue(section, key, value);
    }
    qz::test::ManualClock& clock() { return server->machine.clock(); }
    qz::DateTime now() { return clock().now(); }

    std::unique_ptr<TestEngine> server = std::make_unique<TestEngine>();
};

/// An engine that has started and had a few ticks.
struct ServerRun {
    explicit ServerRun(qz::test::TestMachine& its_machine) : machine(its_machine)
    {
        engine.Server_Start();
        machine.loop().run_pending();
    }
    void tick_for(std::chrono::seconds time)
    {
        machine.clock().advance(time);
        machine.tick(4);
    }

    qz::test::TestMachine& machine;
    qz::test::RecordingEvents events;
    qz::server::Engine engine{machine, events};
};

class ClockGuardStart : public testing::TestWithParam<const char*> { };

INSTANTIATE_TEST_SUITE_P(DailyJobsOncePerDay, ClockGuardStart, testing::Values("True", "False"));

} // namespace

TEST_F(ClockGuardTest, AWrongClockOfSecondsDoesNothing)
{
    start();
    run_for(10s, 1s);
    for (const int days : {400, -9000}) {
        step(days);
        run_for(8s, 1s);
        step(-days);
        run_for(8s, 1s);
        EXPECT_THAT(enabled(), SizeIs(3)) << days;
        EXPECT_EQ(waiting(), 1U) << days;
    }
    step(1); // a day is no fault of the clock: it passes on its own
    run_for(2s, 1s);
    EXPECT_EQ(waiting(), 0U);
}

TEST_F(ClockGuardTest, AClockThatKeepsItsTimeIsBelievedInTheEnd)
{
    start();
    run_for(2s, 1s);
    server->events.list.clear();
    step(400);
    run_for(9min, 30s);
    EXPECT_EQ(waiting(), 1U);
    run_for(2min, 30s);
    EXPECT_EQ(waiting(), 0U) << "messages wait ten minutes";
    run_for(23h, 10min);
    EXPECT_THAT(enabled(), SizeIs(3));
    run_for(1h, 10min);
    EXPECT_THAT(enabled(), SizeIs(0)) << "accounts wait a day";
    const auto lines = server->events.take_starting("Log The clock");
    ASSERT_THAT(lines, SizeIs(2)) << "no line for each tick";
    EXPECT_THAT(lines[0], HasSubstr("400 days ahead"));
}

TEST_F(ClockGuardTest, AJumpBackFromAWrongClockIsNoSecondFault)
{
    start();
    step(400);
    run_for(25h, 1h); // believed by now
    step(-400);
    run_for(12h, 1h);
    step(400);
    run_for(2s, 1s);
    EXPECT_EQ(server->events.take_starting("Log The clock").size(), 4U);
}

TEST_P(ClockGuardStart, AServerThatStartsWithAWrongClockKeepsItsLogAndItsMessages)
{
    qz::test::TestMachine machine;
    qz::config::IniFile ini(machine.home() / "VELTO_Server.ini");
    ini.WriteIniValue("Safeguards", "ClockGuard", "True");
    ini.WriteIniValue("Safeguards", "DurableQueue", "True");
    ini.WriteIniValue("Safeguards", "DailyJobsOncePerDay", GetParam());
    ini.WriteIniValue("General SetUp", "Clear log older than", "30");
    const auto old_lines = [&] {
        return machine.database().rows(kLog, {"ActionTime"});
    };
    {
        ServerRun run(machine);
        queue_message(run.engine, machine.clock().now());
        machine.loop().run_pending(); // stores it
    }
    machine.clock().set_now(machine.clock().now().plus_seconds(400 * kDay));
    {
        ServerRun run(machine);
        EXPECT_THAT(run.events.list,
            Contains(HasSubstr("The newest line of the activity log is of 2026-03-02 09:00:00; no account")));
        run.tick_for(8s);
        EXPECT_EQ(run.engine.message_queue.get_QueueMessages().size(), 1U);
        EXPECT_THAT(old_lines(), Contains(StartsWith("2026-03-02")));
        run.tick_for(10min);
        EXPECT_EQ(run.engine.message_queue.get_QueueMessages().size(), 0U);
        EXPECT_THAT(old_lines(), Contains(StartsWith("2026-03-02")));
    }
    machine.clock().advance(1h);
    ServerRun run(machine); // with a clock that is as wrong as before
    run.tick_for(1s);
    EXPECT_THAT(old_lines(), Not(Contains(StartsWith("2026-03"))));
}
