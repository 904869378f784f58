// Connections that the server ends on purpose: what their clients and the log read.
#include "net/Policing.h"

#include "store/Statements.h"
#include "support/Conversation.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using qz::DateTime;
using qz::test::MemoryPeer;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class PolicingTest : public testing::Test {
protected:
    PolicingTest()
    {
        server.machine.clock().set_now(DateTime::parse("2026-03-02 09:05:07").value());
        qz::test::add_row(
            server.engine.database, qz::store::tables::kUsers, {{"UserName", "ann"}, {"Password", "secret"}});
        server.start();
        server.machine.tick();
        server.events.list.clear();
    }
    std::vector<std::string> heard(MemoryPeer& peer)
    {
        server.settle();
        return qz::test::messages_in(peer.take());
    }

    qz::test::TestEngine server;
    qz::net::Policing& policing = server.engine.policing;
};

} // namespace

TEST_F(PolicingTest, TellsEveryEarlierConnectionWhyItEnds)
{
    auto first = server.client_on_line("ann", "1");
    auto other = server.client_on_line("bob", "2");
    auto second = server.client_on_line("ann", "3");
    server.events.list.clear();
    server.machine.clock().advance(std::chrono::hours(30));
    policing.CloseAllPreviousConnections("ann", "198.51.100.7");
    for (auto* peer : {&first, &second}) {
        EXPECT_THAT(heard(*peer),
            ElementsAre(
                "notice Somebody from 198.51.100.7 is using this screen name ann and forced you logout"
                " immediatly because it looks you are connected using this screen name ann since"
                " Monday 02 March 2026 at 09.05.07 on socket "
                + std::to_string(peer->number())
                + "\r\nIf you think this is an error message, please contact the administrator of this"
                  " service!"));
        EXPECT_TRUE(peer->ended());
    }
    EXPECT_THAT(heard(other), IsEmpty());
    EXPECT_FALSE(other.ended());
    const std::string line = "Log 198.51.100.7 forced log off of ann";
    const std::string status = "Log New status for ann: offline [ann, 192.0.2.10]";
    EXPECT_THAT(server.events.take_starting("Log "), ElementsAre(line, status, line, status));
}

TEST_F(PolicingTest, WhoIsOnLineTwiceIsOutAtTheNextTick)
{
    auto bob = server.client_on_line("bob", "1");
    auto first = server.client_on_line("ann", "2");
    server.machine.tick();
    EXPECT_FALSE(first.ended());
    auto second = server.client_on_line("ann", "3");
    auto third = server.client_on_line("ann", "4");
    server.events.list.clear();
    server.machine.tick();
    for (auto* peer : {&first, &second, &third}) {
        EXPECT_THAT(heard(*peer), IsEmpty());
        EXPECT_TRUE(peer->ended());
    }
    EXPECT_FALSE(bob.ended());
    const std::string line = "Log ann logged off from 127.0.0.1 since connected too much times";
    const std::string status = "Log New status for ann: offline [ann, 192.0.2.10]";
    EXPECT_THAT(server.events.take_starting("Log "), ElementsAre(line, status, line, status, line, status));
    EXPECT_EQ(server.engine.connections.count_on_line(), 1);
}

TEST_F(PolicingTest, LogsOffWhomTheHostNames)
{
    auto ann = server.client_on_line("ann", "1");
    auto again = server.client_on_line("ann", "2");
    server.events.list.clear();
    policing.log_off("");
    EXPECT_THAT(server.events.take(), IsEmpty());
    policing.log_off("nobody");
    EXPECT_THAT(server.events.take(), ElementsAre("Log User nobody doesn't exist"));
    policing.log_off("ann"); // the first connection only
    EXPECT_THAT(heard(ann), ElementsAre("notice You have been logged off from the VELTO server"));
    EXPECT_TRUE(ann.ended());
    EXPECT_FALSE(again.ended());
    EXPECT_THAT(server.events.take_starting("Log "),
        ElementsAre(
            "Log ann logged off from VELTO server", "Log New status for ann: offline [ann, 192.0.2.10]"));
    policing.log_off("ann");
    server.events.list.clear();
    policing.log_off("ann");
    EXPECT_THAT(server.events.take(), ElementsAre("Log User ann is not on line now!"));
}

TEST_F(PolicingTest, TheCommandsDoWhatTheirMembersAsk)
{
    auto ann = server.client_on_line("ann", "1");
    auto bob = server.client_on_line("bob", "2");
    server.engine.commands.SendRemoteCommand("now = please", "restart the client");
    server.engine.commands.SendInstantMessageToAll("tea is ready");
    server.engine.commands.LogOffUser("ann");
    server.events.list.clear();
    server.machine.tick();
    const std::string remote = "remotecommand remotecommand=restart\x1Fthe\x1F"
                               "client msg=now = please";
    EXPECT_THAT(heard(ann),
        ElementsAre(remote, "notice tea is ready", "notice You have been logged off from the VELTO server"));
    EXPECT_THAT(heard(bob), ElementsAre(remote, "notice tea is ready"));
    EXPECT_THAT(server.events.take_starting("Log "),
        ElementsAre("Log 2 messages have been sent correctly", "Log 2 messages have been sent correctly",
            "Log ann logged off from VELTO server", "Log New status for ann: offline [ann, 192.0.2.10]"));
    policing.CloseAllConnections();
    EXPECT_THAT(server.events.take(),
        ElementsAre("Log New status for bob: offline [bob, 192.0.2.10]", "OnLine 0",
            "Log All active connections closed", "OnLine 0"));
    EXPECT_TRUE(bob.ended());
}
