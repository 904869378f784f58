#include "store/LastActivity.h"

#include "store/Statements.h"
#include "support/MemoryStore.h"

#include <gtest/gtest.h>

using qz::store::tables::kLog;
using qz::store::tables::kUsers;
using Texts = std::vector<std::string>;

namespace {

// Today is 2 March 2026.
class LastActivityTest : public testing::Test, protected qz::test::MemoryStore {
protected:
    LastActivityTest()
    {
        for (const auto* name : {"anna", "bert", "carl"}) {
            add(kUsers, {{"UserName", name}});
        }
    }
    void log(const char* user, const char* time, const char* action = "something")
    {
        add(kLog, {{"UserName", user}, {"ActionTime", time}, {"Action", action}});
    }
    Texts inactive(std::int32_t days)
    {
        Texts found;
        const auto users = activity.Retrieve_LastActivity(days).value();
        for (const auto& user : users) {
            found.push_back(user.UserName + " " + std::to_string(user.DaysAgo));
        }
        return found;
    }

    qz::store::LastActivity activity{database, journal};
};

} // namespace

TEST_F(LastActivityTest, ListsByAgeOfTheOldestRowThenName)
{
    log("carl", "2026-02-20 10:00:00");
    log("bert", "2026-02-01 23:59:59");
    log("bert", "2026-03-02 08:00:00");
    log("anna", "2026-02-20 00:00:00");
    log("stranger", "2025-01-01 00:00:00");
    EXPECT_EQ(inactive(0), (Texts{"bert 29", "anna 10", "carl 10"}));
    EXPECT_EQ(inactive(10), (Texts{"bert 29", "anna 10", "carl 10"}));
    EXPECT_EQ(inactive(11), Texts{"bert 29"});
    EXPECT_EQ(inactive(30), Texts{});
    database.ClosedbConnection();
    EXPECT_FALSE(activity.Retrieve_LastActivity(0)) << "a failure is not the same as nobody";
    EXPECT_EQ(journal.failures.at(0).routine, "Retrieve_LastActivity");
}

TEST_F(LastActivityTest, GivesWhoWasNeverThereAFirstRow)
{
    log("bert", "2026-02-20 10:00:00");
    log("bert", "2026-02-10 10:00:00");
    EXPECT_EQ(activity.RetrieveLastActivity("bert"), "2026-02-20 10:00:00");
    EXPECT_EQ(activity.RetrieveLastActivity("anna"), "");
    activity.SetLastActivity();
    Texts lines;
    for (const auto& line : journal.lines) {
        lines.push_back(line.message + "|" + line.user_name + "|" + line.remote_ip);
    }
    EXPECT_EQ(
        lines, (Texts{"Virtual connection for anna|anna|anna", "Virtual connection for carl|carl|carl"}));
}

TEST_F(LastActivityTest, TellsARecentLogOnOfAnEnabledAccount)
{
    log("anna", "2026-02-20 10:00:00", "LogOn successfully for anna from 10.0.0.1");
    log("bert", "2026-02-20 10:00:00", "LogOn failed for bert");
    add(kUsers, {{"UserName", "dora"}, {"AccountActive", false}});
    log("dora", "2026-02-20 10:00:00", "LogOn successfully for dora");
    EXPECT_TRUE(activity.HadUserLoggedBeforeExpirationTime("anna", 10));
    EXPECT_FALSE(activity.HadUserLoggedBeforeExpirationTime("anna", 9));
    EXPECT_FALSE(activity.HadUserLoggedBeforeExpirationTime("bert", 10));
    EXPECT_FALSE(activity.HadUserLoggedBeforeExpirationTime("dora", 10));
}
