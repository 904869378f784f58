#include "store/Database.h"

#include "store/Statements.h"
#include "support/TestStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using qz::test::TestStore;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

std::string string_of(TestStore& store)
{
    store.database.ClosedbConnection();
    const auto text = store.database.ConnectionTest();
    return text.substr(0, text.find("\r\n"));
}

} // namespace

TEST(Database, BuildsTheConnectionString)
{
    TestStore store;
    EXPECT_EQ(string_of(store),
        "Connection string: Driver={SQL Server};Server=127.0.0.1;Database=VELTO;uid=sa;pwd=;");
    store.settings.set_DBServerIP("db.example.org,1433");
    store.settings.set_DBUserName("velto");
    store.settings.set_DBPassword("a;pwd=b}");
    store.settings.set_DBODBC("other");
    store.database.BuildConnectionString();
    EXPECT_EQ(string_of(store),
        "Connection string: Driver={SQL Server};Server=db.example.org,1433;Database=VELTO;uid=velto;"
        "pwd={a;pwd=b}}};");
}

TEST(Database, OpensAClosedConnectionAnew)
{
    TestStore store;
    store.database.BuildConnectionString();
    ASSERT_EQ(store.journal.lines.size(), 1U) << "an open connection stays";
    EXPECT_EQ(store.journal.lines[0].message, "Database connection OK");
    const auto made = store.connections_made;
    store.database.ClosedbConnection();
    store.database.ClosedbConnection();
    EXPECT_THAT(store.failures(), IsEmpty());
    EXPECT_EQ(store.database.ConnectionTest(),
        "Connection string: Driver={SQL Server};Server=127.0.0.1;Database=VELTO;uid=sa;pwd=;\r\n"
        "Connection state: 0\r\nconfiguration file: "
            + (store.folder / "VELTO_Server.ini").string());
    store.database.BuildConnectionString();
    EXPECT_EQ(store.connections_made, made + 1);
    EXPECT_EQ(store.database.ConnectionTest(), "Connection OK");
    store.watch = [](const std::string& sql) {
        if (sql.starts_with("SELECT count(UserName)")) {
            throw qz::database_error(qz::DatabaseError::MissingTable, "no users");
        }
    };
    store.database.ClosedbConnection();
    store.database.BuildConnectionString();
    EXPECT_EQ(store.journal.lines.back().message, "Database connection failed!");
    store.database.OpendbConnection();
    EXPECT_EQ(store.journal.lines.back().message,
        "Error opening database connection: The connection is already open");
    EXPECT_THAT(store.failures(), ElementsAre("opendbConnection:  -2147467259"));
}

TEST(Database, HidesThePasswordWhereItIsAskedTo)
{
    TestStore store;
    store.settings.set_DBPassword("open;sesame");
    store.database.BuildConnectionString();
    store.database.ClosedbConnection();
    store.watch = [](const std::string& sql) {
        throw qz::database_error(qz::DatabaseError::LogonFailed, "refused: " + sql + " pwd={open;sesame}");
    };
    EXPECT_THAT(store.database.ConnectionTest(), HasSubstr("pwd={open;sesame};"));
    store.database.OpendbConnection();
    EXPECT_THAT(store.journal.lines.back().message, HasSubstr("sesame"));
    store.ini.WriteIniValue("Safeguards", "HidePasswords", "True");
    EXPECT_THAT(store.database.ConnectionTest(),
        AllOf(HasSubstr(";uid=sa;pwd=********;\r\nConnection state: 0"), Not(HasSubstr("sesame"))));
    store.database.OpendbConnection();
    EXPECT_THAT(store.journal.lines.back().message, Not(HasSubstr("sesame")));
    EXPECT_THAT(store.journal.failures.back().description, Not(HasSubstr("sesame")));
    EXPECT_EQ(store.journal.failures.back().number, qz::number_of(qz::DatabaseError::LogonFailed));
}

TEST(Database, CommitsAtTheEndOfATurn)
{
    TestStore store;
    store.database.run(qz::store::statements::kInsertCommand, "one", "");
    EXPECT_EQ(store.foreign_program.count(qz::store::tables::kCommand), 0U);
    EXPECT_EQ(store.foreign().count(qz::store::tables::kCommand), 1U);
    store.database.run(qz::store::statements::kInsertCommand, "two", "");
    store.watch = [](const std::string& sql) {
        if (sql == "END OF TURN") {
            throw qz::database_error(qz::DatabaseError::Timeout, "locked");
        }
    };
    store.database.turn_ended();
    ASSERT_EQ(store.journal.failures.size(), 1U);
    EXPECT_EQ(store.journal.failures[0].routine, "EndOfTurn");
    EXPECT_FALSE(store.journal.failures[0].logged) << "a log row could not be stored either";
    store.database.ClosedbConnection();
    EXPECT_EQ(store.foreign().count(qz::store::tables::kCommand), 2U) << "closing stores what is pending";
}

TEST(Database, AWholeTurnIsStoredOrLost)
{
    struct Outcome final : qz::store::TurnOutcome {
        void turn_ending() override { last = "ending"; }
        void turn_stored() override { last += " stored"; }
        void turn_lost() override { last += " lost"; }
        std::string last;
    } outcome;
    TestStore store;
    store.database.tell(outcome);
    const auto command = [&](const char* name) {
        store.database.run(qz::store::statements::kInsertCommand, name, "");
    };
    const auto refuse = [&](qz::DatabaseError error) {
        store.watch = [=](const std::string& sql) {
            if (sql.starts_with("INSERT")) {
                throw qz::database_error(error, "no");
            }
        };
        EXPECT_THROW(command("refused"), qz::EngineError);
        store.watch = nullptr;
    };
    const struct {
        bool whole;
        qz::DatabaseError error;
        bool failed;
        const char* outcome;
        std::size_t rows; // after this turn and those before
    } cases[] = {
        {false, qz::DatabaseError::Timeout, false, "ending stored", 1},
        {true, qz::DatabaseError::Constraint, false, "ending stored", 2}, // one statement, not the database
        {true, qz::DatabaseError::Timeout, false, "ending lost", 2},
        {false, qz::DatabaseError::Timeout, false, "ending stored", 3}, // asked for anew in each turn
        {false, qz::DatabaseError::Constraint, true, "ending lost", 3},
    };
    for (const auto& each : cases) {
        command("kept");
        if (each.whole) {
            store.database.require_whole_turn();
        }
        refuse(each.error);
        if (each.failed) {
            store.database.fail_turn();
        }
        EXPECT_EQ(store.foreign().count(qz::store::tables::kCommand), each.rows);
        EXPECT_EQ(outcome.last, each.outcome);
    }
    store.database.ClosedbConnection();
    store.database.fail_turn();
    store.database.turn_ended();
    EXPECT_EQ(outcome.last, "ending lost") << "without a connection, too";
}
