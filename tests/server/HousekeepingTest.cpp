#include "server/Housekeeping.h"

#include "base/EngineError.h"
#include "support/ManualTimer.h"
#include "support/RecordingJournal.h"
#include "support/Secrets.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

using qz::config::ServerSpeed;
using std::chrono::milliseconds;

namespace {

class HousekeepingTest : public testing::Test, public qz::server::TickJobs {
protected:
    HousekeepingTest() { housekeeping.use(&timer); }

    void run_frequent_jobs() override
    {
        ran("frequent");
        if (on_frequent) {
            on_frequent();
        }
    }
    void CheckConnectionUp() override { ran("connections"); }
    void refresh_online_info() override { ran("online"); }
    void ListAllUsers() override { ran("users"); }
    void clean_up_buddies() override { ran("buddies"); }
    void run_inactivity_job() override { ran("inactivity"); }
    void check_client_versions() override { ran("versions"); }
    void send_queued_messages() override { ran("queue"); }

    void start(ServerSpeed speed)
    {
        housekeeping.set_ServerSpeed(speed);
        housekeeping.run();
        timer.set_enabled(true);
    }
    void tick(int count)
    {
        for (; count > 0; --count) {
            ++ticks;
            timer.tick();
        }
    }

    void ran(const char* job)
    {
        due[job].push_back(ticks);
        last_order = ticks == last_tick ? last_order + ", " + job : job;
        last_tick = ticks;
    }

    int ticks = 0;
    int last_tick = 0;
    std::string last_order;                      // the jobs of the last tick
    std::map<std::string, std::vector<int>> due; // the ticks on which each job ran
    std::function<void()> on_frequent;
    qz::test::TemporaryFolder folder;
    qz::test::RecordingJournal journal;
    qz::test::Secrets secrets{folder.path()};
    qz::config::IniFile ini{folder / "settings.ini"};
    qz::config::Settings settings{ini, secrets.cipher, journal};
    qz::server::Housekeeping housekeeping{settings, *this, journal};
    qz::test::ManualTimer timer{housekeeping};
};

} // namespace

TEST_F(HousekeepingTest, SpeedsSetIntervalAndLimits)
{
    const struct {
        ServerSpeed speed;
        int interval;
        int per_second;
    } cases[] = {{ServerSpeed::Fast, 100, 10}, {ServerSpeed::Normal, 500, 2}, {ServerSpeed::Slow, 1000, 1},
        {static_cast<ServerSpeed>(7), 500, 2}, {static_cast<ServerSpeed>(-1), 500, 2}};
    for (const auto& each : cases) {
        housekeeping.set_ServerSpeed(each.speed);
        EXPECT_EQ(timer.interval(), milliseconds(each.interval));
        EXPECT_EQ(housekeeping.ticks_per_second(), each.per_second);
        EXPECT_EQ(settings.get_ServerSpeedRead(), each.speed);
    }
    EXPECT_TRUE(journal.failures.empty()) << "a day of ticks that does not fit is no failure";
}

TEST_F(HousekeepingTest, JobsRunWhenTheirCounterPassesItsLimit)
{
    start(ServerSpeed::Fast);
    tick(3700);
    EXPECT_EQ(due["online"], (std::vector<int>{601, 1202, 1803, 2404, 3005, 3606}));
    EXPECT_EQ(due["connections"], (std::vector<int>{1801, 3602}));
    EXPECT_EQ(due["frequent"].front(), 2) << "the first tick runs no job";
    EXPECT_EQ(due["frequent"].size(), 3699U);
}

TEST_F(HousekeepingTest, DailyJobsRunOnEveryTick)
{
    start(ServerSpeed::Slow);
    tick(21602);
    EXPECT_EQ(last_order, "frequent, inactivity, versions, queue");
    EXPECT_EQ(due["users"].front(), 301);
    EXPECT_EQ(due["buddies"], std::vector<int>{21601});
    for (const auto* job : {"inactivity", "versions", "queue"}) {
        EXPECT_EQ(due[job].size(), 21602U) << job << ": a day has more ticks than 16 bits hold";
    }
}

TEST_F(HousekeepingTest, ATickDuringATickDoesNothing)
{
    start(ServerSpeed::Slow);
    tick(1);
    on_frequent = [&] {
        timer.tick();
    };
    tick(60);
    EXPECT_EQ(due["frequent"].size(), 60U);
    EXPECT_EQ(due["online"], std::vector<int>{61}) << "the inner ticks were not counted";
}

TEST_F(HousekeepingTest, AFailureEndsTheTickAndNotTheNext)
{
    start(ServerSpeed::Slow);
    on_frequent = [&] {
        if (ticks == 60 || ticks == 61) {
            throw qz::runtime_error(qz::RuntimeError::Overflow);
        }
    };
    tick(63);
    ASSERT_EQ(journal.failures.size(), 2U);
    EXPECT_EQ(journal.failures[0].routine, "DoServerActivities");
    EXPECT_EQ(due["frequent"].size(), 62U);
    EXPECT_EQ(due["online"], std::vector<int>{63}) << "the counters of a broken tick stand still";
}

TEST_F(HousekeepingTest, DoesNothingBeforeTheStart)
{
    housekeeping.set_ServerSpeed(ServerSpeed::Slow);
    timer.set_enabled(true);
    tick(100);
    EXPECT_TRUE(due.empty());
}
