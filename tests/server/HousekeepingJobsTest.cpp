#include "server/Housekeeping.h"

#include "support/ManualTimer.h"
#include "support/TestStore.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using Ticks = std::vector<int>;

/// Remembers at which ticks each job ran, and the order within one tick.
class Jobs final : public qz::server::TickJobs {
public:
    void run_frequent_jobs() override { ran("frequent"); }
    void CheckConnectionUp() override { ran("connections"); }
    void refresh_online_info() override { ran("online info"); }
    void ListAllUsers() override { ran("users"); }
    void clean_up_buddies() override { ran("buddies"); }
    void run_inactivity_job() override { ran("inactivity"); }
    void check_client_versions() override { ran("versions"); }

    int tick = 0;
    std::map<std::string, Ticks> ticks;
    std::map<int, std::vector<std::string>> order;

private:
    void ran(const char* job)
    {
        ticks[job].push_back(tick);
        order[tick].emplace_back(job);
    }
};

class HousekeepingJobsTest : public testing::Test, protected qz::test::TestStore {
protected:
    void run(qz::config::ServerSpeed speed, int count)
    {
        housekeeping.use(&timer);
        housekeeping.set_ServerSpeed(speed);
        for (jobs.tick = 1; jobs.tick <= count; ++jobs.tick) {
            housekeeping.DoServerActivities();
        }
    }
    Jobs jobs;
    qz::server::Housekeeping housekeeping{settings, jobs, journal};
    qz::test::ManualTimer timer{housekeeping};
};

} // namespace

TEST_F(HousekeepingJobsTest, RunsEachJobWhenItsCounterPassesItsLimit)
{
    run(qz::config::ServerSpeed::Slow, 2 * 21601);
    EXPECT_EQ(jobs.ticks["connections"].front(), 181);
    EXPECT_EQ(jobs.ticks["online info"].front(), 61);
    EXPECT_EQ(jobs.ticks["online info"].at(1), 122);
    EXPECT_EQ(jobs.ticks["users"].front(), 301);
    EXPECT_EQ(jobs.ticks["buddies"], (Ticks{21601, 43202}));
    EXPECT_EQ(jobs.ticks["frequent"].front(), 2);
}

TEST_F(HousekeepingJobsTest, RunsTheDailyJobsOnEveryTickInTheirPlace)
{
    run(qz::config::ServerSpeed::Slow, 61 * 181); // on the last tick two counters meet
    EXPECT_EQ(jobs.ticks["inactivity"].size(), jobs.ticks["frequent"].size() + 1);
    EXPECT_EQ(jobs.order[1], (std::vector<std::string>{"inactivity", "versions"}));
    EXPECT_EQ(jobs.order[61 * 181],
        (std::vector<std::string>{"frequent", "connections", "online info", "inactivity", "versions"}));
}
