// What requests ask of the database must not grow with its tables; `velto_request_costs` in bench/ measures
// it.
#include "store/Statements.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qz::store::tables;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;
using Texts = std::vector<std::string>;

namespace {

class RequestCost : public testing::Test {
protected:
    RequestCost()
    {
        server.settle();
        for (const auto* name : {"ann", "bob"}) {
            server.machine.database().add(kUsers, {{"UserName", name}, {"Password", "secret"}});
            server.machine.database().add(kBuddies, {{"UserName", name}, {"Buddy", "carl"}});
        }
        server.start();
    }
    void request(const std::string& text)
    {
        server.engine.dispatcher.HandleIncoming(0, text, 1, "");
        server.settle();
    }

    qz::test::TestEngine server;
};

} // namespace

TEST_F(RequestCost, NoRequestReadsAWholeTable)
{
    Texts whole;
    server.machine.watch = [&](const std::string& sql) {
        if (sql == qz::store::statements::kSelectUsers.stated
            || sql == qz::store::statements::kSelectBuddies.stated
            || sql == qz::store::statements::kSelectRooms.stated
            || sql == qz::store::statements::kSelectDuplicatedBuddies.stated) {
            whole.push_back(sql);
        }
    };
    for (const auto* text : {
             "addbuddy screenname=ann newbuddy=bob group=work",
             "addbuddy screenname=ann newbuddy=bob group=again",
             "addbuddy screenname=ann newbuddy= group=work",
             "buddydetails action=update screenname=ann buddy=bob group=g comment=c key=k",
             "buddykey action=update screenname=ann buddy=bob key=k2",
             "deletebuddy screenname=ann screenname2delete=bob",
             "deletebuddy screenname=ann screenname2delete=nobody",
             "clientversion screenname=ann clientversion=2.0",
             "findbuddy screennametofind=ann",
             "room action=createnew screenname=ann roomname=attic",
             "room action=delete screenname=ann roomname=attic",
         }) {
        request(text);
        EXPECT_TRUE(server.engine.accounts.ScreenNameExist("ann"));
        EXPECT_THAT(whole, ElementsAre()) << text;
        whole.clear();
    }
    EXPECT_THAT(server.events.list, Not(Contains(StartsWith("Error"))));
    EXPECT_THAT(server.machine.database().rows(kBuddies, {"UserName", "Buddy"}),
        ElementsAre("ann|carl", "bob|carl", "ann|"));
}

TEST_F(RequestCost, ASearchFindsAnAccountOfAnotherProgram)
{
    server.machine.database().add(kUsers, {{"UserName", "zoe"}});
    server.events.list.clear();
    request("findbuddy screennametofind=zoe");
    EXPECT_THAT(server.events.list, Contains(StartsWith("Log SearchBuddy from")));
}
