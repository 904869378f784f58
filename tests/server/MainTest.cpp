// Main as its host sees it: what it logs and raises, in which order.
#include "server/Main.h"

#include "base/EngineError.h"
#include "store/Statements.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using namespace qz::store::tables;
using qz::server::Main;
using qz::server::ServerStatus;
using qz::test::TestEngine;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using Texts = std::vector<std::string>;

namespace {

class MainTest : public testing::Test {
protected:
    void create()
    {
        main.emplace(machine, events);
        settle();
    }
    void start()
    {
        create();
        main->Server_Start();
        settle();
        events.list.clear();
    }
    void settle() { machine.loop().run_pending(); }
    Texts log_rows() { return machine.database().rows(kLog, {"Action", "UserName", "RemoteIP"}); }

    qz::test::TestMachine machine;
    qz::test::RecordingEvents events;
    std::optional<Main> main;
};

} // namespace

TEST_F(MainTest, StoresTheDefaultsOfEmptyDatabaseSettings)
{
    create();
    EXPECT_THAT(events.take(), ElementsAre("Log Database connection OK"));
    EXPECT_EQ(main->get_DBUserName(), "sa");
    EXPECT_EQ(main->get_DBServerIP(), "127.0.0.1");
    EXPECT_EQ(main->get_DBODBC(), "VELTO");
    EXPECT_EQ(main->get_DBPassword(), "");
    EXPECT_EQ(main->get_ServerStatus(), ServerStatus::Arrested);
    EXPECT_TRUE(main->get_StarTime().empty());
}

TEST_F(MainTest, AnswersAboutAccountsBeforeTheStart)
{
    create();
    machine.database().add(qz::store::tables::kUsers, {{"UserName", "ann"}, {"Email", "ann@example.org"}});
    EXPECT_EQ(main->Retrieve_UserEmail("ANN"), "ann@example.org");
    EXPECT_TRUE(main->ScreenName_Enabled("ann"));
}

TEST_F(MainTest, StartsInOrder)
{
    create();
    machine.database().add(kCommand, {{"action", "shutdown"}});
    machine.database().add(kUsers, {{"UserName", "ann"}, {"Password", "plain"}});
    Texts statements;
    machine.watch = [&](const std::string& sql) {
        if (!sql.starts_with("INSERT INTO [LOG]") && sql != "END OF TURN") {
            statements.push_back(sql.substr(0, sql.find(", Len(")));
        }
    };
    events.list.clear();
    main->Server_Start();
    machine.watch = nullptr;
    settle();
    EXPECT_THAT(events.take(),
        ElementsAre("Log Preparing 100 sockets...", "Log Now available 100 sockets",
            "Log Update frequency 2 Hz",
            "Log Service is now ready on 192.0.2.1:2001 [VELTOServer, 127.0.0.1 by 2026-03-02 09:00:00]",
            "ServerStart"));
    const std::string count_users = "SELECT count(IDUserName) as CountOfUsers from users";
    const std::string count_buddies = "SELECT Count(IDBuddies) AS CountOfBuddy FROM buddies";
    EXPECT_THAT(statements,
        ElementsAre(count_users, count_users, "DELETE FROM [command]",
            "SELECT PassWord FROM users WHERE Left (Password", "EDIT", count_users, count_users,
            "SELECT * FROM users order by UserName", count_buddies,
            "SELECT Count(IDRoom) AS CountOfRooms FROM rooms"));
    // The columns are crossed: the address stands where the name belongs.
    const auto rows = log_rows();
    EXPECT_EQ(rows.front(), "Database connection OK|127.0.0.1|VELTOServer");
    EXPECT_EQ(
        rows.back(), "Service is now ready on 192.0.2.1:2001|127.0.0.1 by 2026-03-02 09:00:00|VELTOServer");
    EXPECT_EQ(main->get_ServerStatus(), ServerStatus::Started);
    EXPECT_EQ(main->get_StarTime(), machine.clock().now());
    EXPECT_EQ(main->get_SocketsCount(), 100);
    EXPECT_EQ(machine.network().listening_port(), 2001);
    EXPECT_EQ(main->Retrieve_UserPassWord("ann"), "plain");
    EXPECT_TRUE(std::filesystem::is_directory(machine.home() / "Logs"));
}

TEST_F(MainTest, DoesNotStartTwice)
{
    start();
    main->Server_Start();
    EXPECT_THAT(events.take(), ElementsAre("Log VELTO Server already started"));
    main->set_ServerStatus(ServerStatus::Paused);
    main->Server_Start();
    EXPECT_THAT(events.take(), ElementsAre("Log VELTO Server already started"));
    // A host that sets the status back may start anew, but the server is ready only once.
    main->set_ServerStatus(ServerStatus::Arrested);
    main->Server_Start();
    settle();
    EXPECT_THAT(events.take(),
        ElementsAre(
            "Log Preparing 100 sockets...", "Log Now available 100 sockets", "Log Update frequency 2 Hz"));
    EXPECT_EQ(machine.network().listening_port(), 2001);
    auto peer = machine.network().connect();
    settle();
    EXPECT_TRUE(peer.accepted());
}

TEST_F(MainTest, ReportsAPortThatIsTaken)
{
    create();
    machine.network().occupy(2001);
    events.list.clear();
    main->Server_Start();
    settle();
    const auto list = events.take();
    ASSERT_EQ(list.size(), 5U);
    EXPECT_EQ(list[3], "Error Server_Start 98 @");
    EXPECT_EQ(list[4], "Log Error during Server_Start: Cannot listen on port 2001: Address already in use.");
    machine.tick();
    EXPECT_THAT(events.list, IsEmpty()) << "the timer runs only when the start has come to its end";
}

TEST_F(MainTest, RaisesShutDownAtOnceWhenItIsNotStarted)
{
    create();
    events.list.clear();
    main->Server_End();
    EXPECT_THAT(events.take(), ElementsAre("ShutDown"));
    EXPECT_EQ(machine.database().count(kCommand), 0U);
    main->Server_Start();
    settle();
    main->set_ServerStatus(ServerStatus::Paused);
    events.list.clear();
    main->Server_End();
    EXPECT_THAT(events.take(), ElementsAre("ShutDown")) << "paused is not started";
    EXPECT_EQ(machine.database().count(kCommand), 0U);
}

TEST_F(MainTest, EveryCloseRefreshesTheOnlineCount)
{
    start();
    auto stranger = machine.network().connect();
    settle();
    events.list.clear();
    stranger.vanish();
    settle();
    EXPECT_THAT(events.take(), ElementsAre("OnLine 0"));
}

TEST_F(MainTest, ShutsDownThroughTheCommandTable)
{
    start();
    main->ShutDownServer();
    settle();
    EXPECT_THAT(machine.database().rows(kCommand, {"action"}), ElementsAre("closeall", "shutdown"));
    EXPECT_THAT(events.list, IsEmpty());
    machine.tick();
    EXPECT_THAT(events.list, IsEmpty()) << "the first tick polls nothing";
    machine.tick();
    EXPECT_THAT(events.take(),
        ElementsAre("Log All active connections closed", "OnLine 0", "Log No message was sent",
            "Log VELTOServer is shutting down because of shutdown command...",
            "Log All active connections closed", "OnLine 0", "Log VELTOServer now is closing", "ShutDown",
            "Tick"));
    EXPECT_EQ(machine.database().count(kCommand), 0U);

    main.reset();
    EXPECT_THAT(events.take(),
        ElementsAre(
            "Log Service is now closing 192.0.2.1:2001 [VELTOServer, 127.0.0.1 by 2026-03-02 09:00:00]"));
    EXPECT_EQ(log_rows().back(),
        "Service is now closing 192.0.2.1:2001|127.0.0.1 by 2026-03-02 09:00:00|VELTOServer");
}

TEST(MainShutdown, TellsTheActiveUsersFirst)
{
    TestEngine server;
    server.start();
    auto ann = server.client_on_line("ann", "1");
    auto stranger = server.client();
    server.events.list.clear();
    server.engine.Server_End();
    server.settle();
    EXPECT_THAT(server.events.take(), ElementsAre("Outgoing", "Log 1 messages have been sent correctly"));
    server.machine.tick(2);
    EXPECT_THAT(server.events.take(),
        ElementsAre("Outgoing", "Log 1 messages have been sent correctly",
            "Log VELTOServer is shutting down because of shutdown command...",
            "Log New status for ann: offline [ann, 192.0.2.10]", "OnLine 0",
            "Log All active connections closed", "OnLine 0", "Log VELTOServer now is closing", "ShutDown",
            "Tick"));
    EXPECT_THAT(ann.take_units(), testing::SizeIs(2));
    EXPECT_TRUE(ann.ended());
    EXPECT_THAT(stranger.take_units(), IsEmpty());
}

TEST_F(MainTest, ReportsTwoDatabaseErrorsTwice)
{
    create();
    main->ClosedbConnection();
    events.list.clear();
    main->get_BuddiesCount(); // 3709 of a recordset: reported twice, and so is what the log row met: 3704,
                              // once
    EXPECT_THAT(events.take(),
        ElementsAre("Error Write2dbLog 3704 @", "Error get_BuddiesCount 3709 @", "Error Write2dbLog 3704 @",
            "Error get_BuddiesCount 3709 @127.0.0.1"));

    main->OpendbConnection();
    settle();
    events.list.clear();
    const auto before = log_rows().size();
    const struct {
        qz::EngineError error;
        bool doubled;
    } cases[] = {
        {{number_of(qz::DatabaseError::Unspecified), qz::kProviderSource, "lost"}, true},
        {{number_of(qz::DatabaseError::Unspecified), qz::kRecordsetSource, "lost"}, false},
        {{3709, qz::kProviderSource, "closed"}, false},
        {{number_of(qz::DatabaseError::Syntax), qz::kProviderSource, "wrong"}, false},
    };
    std::size_t rows = before;
    for (const auto& each : cases) {
        machine.watch = [&](const std::string& sql) {
            if (sql.starts_with("SELECT")) {
                throw each.error;
            }
        };
        const auto number = std::to_string(each.error.number());
        main->set_ScreenNamePassword("ann", "x", "192.0.2.9");
        Texts expected(each.doubled ? 2 : 1, "Error set_ScreenNamePassword " + number + " @192.0.2.9");
        EXPECT_EQ(events.take(), expected);
        main->get_BuddiesCount();
        expected = {"Error get_BuddiesCount " + number + " @"};
        if (each.doubled) {
            expected.push_back("Error get_BuddiesCount " + number + " @127.0.0.1");
        }
        EXPECT_EQ(events.take(), expected);
        machine.watch = nullptr;
        settle();
        rows += each.doubled ? 4 : 2;
        ASSERT_EQ(log_rows().size(), rows);
    }
    EXPECT_EQ(log_rows()[before], "lost|VELTOServer|192.0.2.9") << "the report itself is not crossed";
}

TEST_F(MainTest, AFailureOfTheLogOnlyRaisesError)
{
    start();
    machine.watch = [](const std::string& sql) {
        if (sql.starts_with("INSERT INTO [LOG]")) {
            throw qz::database_error(qz::DatabaseError::Timeout, "locked");
        }
    };
    main->CloseAllConnections();
    const auto number = std::to_string(number_of(qz::DatabaseError::Timeout));
    EXPECT_THAT(events.take(),
        ElementsAre("Error Write2dbLog " + number + " @", "Log All active connections closed",
            "Error Write2dbLog " + number + " @", "OnLine 0"));
    EXPECT_EQ(events.last_error,
        qz::kProviderSource
            + ": locked -> INSERT INTO [LOG] ( [UserName], [RemoteIP], [Action]) VALUES ( 'VELTOServer' , "
              "'127.0.0.1' , 'Now on line: 0' )");
}

TEST_F(MainTest, ConstructsWithoutADatabase)
{
    machine.watch = [](const std::string& sql) {
        if (sql == "OPEN") {
            throw qz::database_error(qz::DatabaseError::Unspecified, "no link");
        }
    };
    create();
    EXPECT_THAT(events.list, Contains("Log Error opening database connection: no link"));
    EXPECT_THAT(events.list, Contains("Error opendbConnection:  -2147467259 @"));
    EXPECT_THAT(events.list, Contains("Error opendbConnection:  -2147467259 @127.0.0.1"));
    EXPECT_EQ(main->ConnectionTest(),
        "Connection string: Driver={SQL Server};Server=127.0.0.1;Database=VELTO;uid=sa;pwd=;\r\n"
        "Connection state: 0\r\nconfiguration file: "
            + main->get_ConfigurationFile());
    machine.watch = nullptr;
    main->Server_Start();
    settle();
    EXPECT_EQ(main->ConnectionTest(), "Connection OK") << "a start opens a closed connection";
    EXPECT_THAT(events.list, Contains("ServerStart"));
}

TEST_F(MainTest, AcceptsConnectionsOnlyWhileTheHostWants)
{
    start();
    main->set_AcceptIncomingConnections(false);
    auto refused = machine.network().connect();
    settle();
    EXPECT_FALSE(refused.accepted());
    EXPECT_THAT(events.take(), IsEmpty());
    main->set_AcceptIncomingConnections(true);
    auto accepted = machine.network().connect();
    settle();
    EXPECT_THAT(events.take(),
        ElementsAre("Outgoing", "Connection 192.0.2.10 on 1",
            "Log New connection request on socket 1 from 192.0.2.10"));
}

TEST(Engines, TwoInOneProcessKeepApart)
{
    TestEngine first;
    TestEngine second;
    first.start();
    second.start();
    auto ann = first.client_on_line("ann", "1");
    second.client();
    second.engine.commands.PushCloseAllConnections();
    second.settle();
    second.machine.tick(2);
    first.machine.tick(2);
    EXPECT_EQ(first.engine.connections.count_on_line(), 1);
    EXPECT_FALSE(ann.ended());
    EXPECT_THAT(first.events.list, Not(Contains("Log All active connections closed")));
    EXPECT_THAT(second.events.list, Contains("Log All active connections closed"));
}

TEST(Engines, AStartForgetsConnectionsAndRoomMembers)
{
    TestEngine server;
    server.start();
    server.client_on_line("ann", "1");
    server.engine.room_members.take(0, {"ann", "lobby", {}, false});
    server.machine.database().add(kUsers, {{"UserName", "ann"}});
    server.machine.database().add(kUsers, {{"UserName", "bert"}});
    server.engine.status = ServerStatus::Arrested;
    server.start();
    EXPECT_EQ(server.engine.connections.count_on_line(), 0);
    EXPECT_EQ(server.engine.connections.records().size(), 3U);
    EXPECT_EQ(server.engine.room_members.upper_bound(), 2);
    EXPECT_FALSE(server.engine.room_members.slots()[0].InUse);
}

TEST_F(MainTest, ClearsTheLogEveryDayWhereDailyJobsRunOnceADay)
{
    const auto old_rows = [&] {
        auto all = machine.database().rows(kLog, {"Action"});
        std::erase_if(all, [](const auto& row) { return !row.starts_with("old"); });
        return all;
    };
    const auto today = machine.clock().now().date();
    for (const int days : {7, 6, 5}) {
        machine.database().add(kLog,
            {{"Action", "old " + std::to_string(days)}, {"ActionTime", today.plus_seconds(-86'400 * days)}});
    }
    create();
    main->set_LogOlderThan(7);
    main->Server_Start();
    machine.tick(2);
    EXPECT_THAT(old_rows(), ElementsAre("old 6", "old 5")) << "at the start";
    machine.clock().advance(std::chrono::hours(24));
    machine.tick(2);
    EXPECT_THAT(old_rows(), ElementsAre("old 6", "old 5")) << "not again without the safeguard";
    qz::config::IniFile(machine.home() / "VELTO_Server.ini")
        .WriteIniValue("Safeguards", "DailyJobsOncePerDay", "True");
    machine.tick(2);
    EXPECT_THAT(old_rows(), ElementsAre("old 5"));
    machine.clock().advance(std::chrono::hours(24));
    machine.tick(2);
    EXPECT_THAT(old_rows(), IsEmpty());
}
