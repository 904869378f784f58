// What strangers may add to the log, on a whole engine.
#include "server/LineQuota.h"

#include "helpers/Frame.h"
#include "support/Talk.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using qz::server::LineQuota;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class LineQuotaTest : public testing::Test {
protected:
    LineQuotaTest()
    {
        server.start();
        server.engine.ini.WriteIniValue("Safeguards", "LogLinesPerAddress", "5");
    }

    std::vector<std::string> lines() { return server.events.take_starting("Log "); }
    std::vector<std::string> rows()
    {
        return server.machine.database().rows(qz::store::tables::kLog, {"Action"});
    }
    void connect(int times, const std::string& address = "192.0.2.7")
    {
        for (; times > 0; --times) {
            server.client(address);
        }
    }

    qz::test::TestEngine server;
};

} // namespace

TEST_F(LineQuotaTest, CountsWhatStrangersCauseBeyondTheFirstLines)
{
    server.settle();
    const auto before = rows().size();
    connect(5);
    EXPECT_THAT(lines(), SizeIs(5));
    connect(15);
    EXPECT_THAT(lines(), IsEmpty());
    connect(1, "192.0.2.8");
    EXPECT_THAT(lines(), ElementsAre(HasSubstr("from 192.0.2.8")));
    server.machine.clock().advance(59s);
    server.machine.tick(2);
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_EQ(rows().size(), before + 6);
    server.machine.clock().advance(1s);
    server.machine.tick();
    EXPECT_THAT(lines(), ElementsAre("Log 15 more like this from 192.0.2.7"));
    connect(5);
    EXPECT_THAT(lines(), SizeIs(5)) << "a new minute";
    server.machine.clock().advance(2min);
    server.machine.tick();
    EXPECT_THAT(lines(), IsEmpty()) << "nothing was left out";
    server.engine.ini.WriteIniValue("Safeguards", "LogLinesPerAddress", "0");
    connect(9);
    EXPECT_THAT(lines(), SizeIs(9));
}

TEST(LineQuotaTalk, CoversErrorsAndFailedLogonsButNoUser)
{
    const auto talk = qz::test::talk_in_memory();
    talk->add_user("ann");
    talk->start();
    talk->engine().ini.WriteIniValue("Safeguards", "LogLinesPerAddress", "6");
    auto stranger = talk->connect();
    auto ann = talk->connect();
    const auto bad_frame = qz::helpers::write_frame({1, 1, 2, 1}, "x"); // chunk 2 of 1
    for (int i = 0; i < 20; ++i) {
        stranger.log_on("ann", "wrong");
        stranger.wire().send(bad_frame);
    }
    auto events = talk->events().take();
    const auto count = [&](const std::string& start) {
        return std::count_if(
            events.begin(), events.end(), [&](const auto& each) { return each.starts_with(start); });
    };
    EXPECT_EQ(count("Log New connection"), 2);
    EXPECT_EQ(count("Log LogOn failed"), 2);
    EXPECT_EQ(count("Error DataIncoming"), 2);
    EXPECT_EQ(count("Log ") + count("Error "), 6);

    ann.log_on("ann");
    EXPECT_THAT(talk->log(), Contains(HasSubstr("LogOn successfully for ann from 192.0.2.10")));
    auto again = talk->connect();
    again.log_on("ann");
    EXPECT_THAT(talk->events().take(),
        testing::AllOf(Contains(HasSubstr("forced log off of ann")),
            Contains(HasSubstr("New status for ann: offline"))));
    for (int i = 0; i < 20; ++i) {
        again.say("findbuddy", "screennametofind=ann");
    }
    EXPECT_THAT(talk->log(), SizeIs(20)) << "a user has no limit";
}

TEST(LineQuotaTalk, CoversTheCountOfUsersWhichAStrangerDoesNotChange)
{
    const auto talk = qz::test::talk_in_memory();
    talk->add_user("ann");
    talk->start();
    talk->engine().ini.WriteIniValue("Safeguards", "LogLinesPerAddress", "6");
    auto ann = talk->on_line("ann");
    auto stranger = talk->connect();
    const auto counts = [&] {
        return talk->events().take_starting("OnLine").size();
    };
    counts();
    for (int i = 0; i < 20; ++i) {
        stranger.log_on("ann", "wrong");
    }
    EXPECT_EQ(counts(), 0U);
    for (int i = 0; i < 20; ++i) {
        talk->connect().wire().vanish();
    }
    EXPECT_EQ(counts(), 0U);
    ann.wire().vanish();
    EXPECT_THAT(talk->events().take(), Contains("OnLine 0")) << "a user is never left out";
}

TEST_F(LineQuotaTest, CountsConnectionsThatNeverLogOn)
{
    server.engine.ini.WriteIniValue("Transport", "LogonSeconds", "60");
    std::vector<qz::test::MemoryPeer> idle;
    for (int i = 0; i < 8; ++i) {
        idle.push_back(server.client("192.0.2.7"));
    }
    server.machine.clock().advance(61s);
    server.events.list.clear();
    server.machine.tick(2);
    EXPECT_THAT(lines(),
        ElementsAre("Log 3 more like this from 192.0.2.7", HasSubstr("Socket 1 closed"),
            HasSubstr("Socket 2"), HasSubstr("Socket 3"), HasSubstr("Socket 4"), HasSubstr("Socket 5")));
}

TEST_F(LineQuotaTest, IsBoundedInAddresses)
{
    LineQuota quota(server.engine.deployment, server.machine.clock());
    for (std::size_t i = 0; i < LineQuota::kMostAddresses; ++i) {
        EXPECT_TRUE(quota.takes("2001:db8:" + std::to_string(i) + "::1"));
    }
    int written = 0;
    for (int i = 0; i < 5'000; ++i) {
        written += quota.takes("192.0." + std::to_string(i / 250) + "." + std::to_string(i % 250)) ? 1 : 0;
    }
    EXPECT_EQ(written, 5);
    EXPECT_TRUE(quota.takes("2001:db8:7::2")) << "who was there before has a count of its own";
    const auto unwritten = quota.end_all();
    ASSERT_THAT(unwritten, SizeIs(1));
    EXPECT_EQ(unwritten[0].address, LineQuota::kOthers);
    EXPECT_EQ(unwritten[0].lines, 4'995);
    EXPECT_THAT(quota.end_all(), IsEmpty());
}
