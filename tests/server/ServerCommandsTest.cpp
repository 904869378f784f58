#include "server/ServerCommands.h"

#include "store/Statements.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qz::store::tables;
using qz::test::TestEngine;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ServerCommandsTest : public testing::Test {
protected:
    ServerCommandsTest()
    {
        server.start();
        server.machine.tick();
        server.events.list.clear();
    }
    void tick()
    {
        server.machine.tick();
        std::erase(server.events.list, "Tick");
    }
    auto rows() { return server.machine.database().rows(kCommand, {"action", "Parameters"}); }

    TestEngine server;
};

} // namespace

TEST_F(ServerCommandsTest, CarriesOutWhatAnybodyQueuesInOrderOfTheKeys)
{
    auto& database = server.machine.database();
    database.add(kCommand, {{"IDCommand", 9}, {"action", "shutdown"}});
    database.add(kCommand, {{"IDCommand", 4}, {"action", "closeall"}, {"Parameters", "x"}});
    database.add(kCommand, {{"IDCommand", 5}, {"action", "CLOSEALL"}});
    database.add(kCommand, {{"IDCommand", 6}}); // all null
    database.add(kCommand, {{"IDCommand", 7}, {"action", "reboot"}});
    tick();
    EXPECT_THAT(server.events.take(),
        ElementsAre("Log All active connections closed", "OnLine 0", "Log No message was sent",
            "Log VELTOServer is shutting down because of shutdown command...",
            "Log All active connections closed", "OnLine 0", "Log VELTOServer now is closing", "ShutDown"));
    EXPECT_THAT(rows(), IsEmpty());
    tick();
    EXPECT_THAT(server.events.take(), IsEmpty());
}

TEST_F(ServerCommandsTest, QueuesWhatTheMembersSay)
{
    auto& commands = server.engine.commands;
    commands.set_ServerCommand("one", {});
    commands.SendInstantMessageToAll("it''s late");
    commands.SendRemoteCommand("a message", "open the door");
    commands.LogOffUser("ann");
    server.settle();
    EXPECT_THAT(rows(),
        ElementsAre("one|", "message|it's late",
            "remotecommand|remotecommand=open\x1Fthe\x1F"
            "door msg=a message",
            "logoff|ann"));
    commands.delete_ServerCommand(2);
    commands.delete_ServerCommand(77);
    server.settle();
    EXPECT_EQ(rows().size(), 3U);
    commands.delete_ServerCommand(0);
    server.settle();
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_THAT(server.events.list, IsEmpty());
    // Both texts go into the statement as they stand: a quote breaks it, and nothing else.
    commands.set_ServerCommand("x'); DELETE FROM [command]; --", {});
    server.settle();
    EXPECT_THAT(server.events.take_starting("Error set_ServerCommand"), testing::SizeIs(1));
}

TEST_F(ServerCommandsTest, AFailureLeavesTheRestForTheNextTick)
{
    server.engine.commands.PushCloseAllConnections();
    server.settle();
    int polls = 0;
    server.machine.watch = [&](const std::string& sql) {
        if (sql.starts_with("SELECT * FROM command") && ++polls == 1) {
            throw qz::database_error(qz::DatabaseError::Timeout, "locked");
        }
    };
    tick();
    EXPECT_THAT(server.events.take_starting("Error"), ElementsAre("Error CheckServerCommand -2147217871 @"));
    EXPECT_EQ(rows().size(), 1U);
    tick();
    EXPECT_THAT(server.events.take(), ElementsAre("Log All active connections closed", "OnLine 0"));
    tick();
    tick();
    EXPECT_EQ(polls, 3) << "an empty table that nobody wrote to is not asked again";
    server.machine.database().add(kCommand, {{"action", "closeall"}});
    tick();
    EXPECT_THAT(server.events.take(), ElementsAre("Log All active connections closed", "OnLine 0"));
}

TEST_F(ServerCommandsTest, AnOutageOfTheDatabaseIsToldByItsConnectionOnly)
{
    server.engine.commands.PushCloseAllConnections();
    server.settle();
    server.machine.watch = [&](const std::string& sql) {
        if (sql.starts_with("SELECT * FROM command")) {
            server.engine.database.ClosedbConnection(); // as a lost link does
            throw qz::database_error(qz::DatabaseError::Unspecified, "gone");
        }
    };
    tick();
    tick();
    EXPECT_THAT(server.events.take_starting("Error CheckServerCommand"), IsEmpty());
}
