// What the embedded database keeps beside the log and the messages gives the same answers as their rows.
#include "platform/sqlite/SqliteProvider.h"
#include "store/Query.h"
#include "support/ManualClock.h"
#include "support/MemoryDatabase.h"
#include "support/OtherProgram.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace qz::platform;
using namespace qz::store::statements;
using namespace qz::store::tables;
using Texts = std::vector<std::string>;
using Values = std::vector<Value>;

namespace {

class SqliteSideTablesTest : public testing::Test {
protected:
    SqliteSideTablesTest() { open(); }

    void open()
    {
        connection.reset();
        ConnectionOptions options;
        options.database_file = file;
        options.overrides = qz::store::all_overrides();
        connection = make_sqlite_connection(options, clock);
        connection->Open("");
    }
    Texts other(const std::string& sql) { return qz::test::OtherProgram(file).run(sql); }
    std::int64_t add_message(double number)
    {
        return connection->add_row(
            kMessages, {{"UserName_From", "UserName_To", "MsgID"}, {"ada", "ben", number}});
    }
    /// Keys of the messages with a number.
    Texts messages(const Value& number) { return column(kSelectMessagesByMsgID, number, "IDMessage"); }
    void log(const std::string& user, const std::string& time)
    {
        connection->insert_row(kLog, {{"UserName", "ActionTime"}, {user, time}});
    }
    Texts last(const std::string& user) { return column(kSelectLastActivity, user, "LastOfActionTime"); }
    Texts days() { return column(kSelectInactiveUsers, 0, "DaysAgo"); }
    Texts column(const Statement& statement, const Value& value, const char* name)
    {
        const qz::store::Rows rows(statement, connection->query(statement, {&value, 1}));
        Texts values;
        for (const auto row : rows) {
            values.push_back(row[name].text());
        }
        return values;
    }

    qz::test::TemporaryFolder folder;
    const std::filesystem::path file = folder.path() / "VELTO.db";
    qz::test::ManualClock clock; // 2 March 2026, 09:00
    std::unique_ptr<Connection> connection;
};

TEST_F(SqliteSideTablesTest, AMessageIsFoundByItsNumberHoweverManyThereAre)
{
    std::mt19937_64 random(7);
    std::map<std::int64_t, Texts> expected;
    const auto check = [&](const char* when) {
        std::size_t wrong = 0;
        int count = 0;
        for (const auto& [number, keys] : expected) {
            wrong += ++count % 97 == 0 && messages(number) != keys ? 1U : 0U;
        }
        EXPECT_EQ(wrong, 0U) << when;
        EXPECT_EQ(messages(-5), Texts{});
    };
    constexpr int kTurns = 250; // numbers are entered from the 193rd turn that is stored on
    for (int turn = 0; turn < kTurns; ++turn) {
        const bool lost = turn == 7 || turn == 57 || turn == kTurns - 1;
        for (int i = 0; i < 340; ++i) {
            const auto number = static_cast<std::int64_t>(random() % 60'000); // many come twice
            const auto key = add_message(static_cast<double>(number));
            if (!lost) {
                expected[number].push_back(std::to_string(key));
            }
        }
        if (lost) {
            connection->rollback();
        }
        connection->commit();
        if (turn == 225) {
            EXPECT_NE(other("SELECT count(*) FROM messagenumbers"), Texts{"0"}) << "without being asked";
            EXPECT_EQ(other("SELECT SeenUntil FROM messagenumbersseen"), Texts{"0"}) << "not all yet";
        }
    }
    check("in the middle of entering");
    connection->commit();
    open();
    check("after a restart");
}

TEST_F(SqliteSideTablesTest, AMessageIsFoundWhateverOtherProgramsDo)
{
    const auto three = [&] {
        add_message(1);
        add_message(2);
        add_message(2.5);
        connection->commit();
    };
    three();
    EXPECT_EQ(messages(2), Texts{"2"});
    connection->commit();
    other("UPDATE messages SET MsgID = 2 WHERE IDMessage = 1; UPDATE messages SET MsgID = NULL WHERE MsgID = "
          "2.5;"
          "INSERT INTO messages (MsgID) VALUES (2), (NULL), ('text'), (9007199254740993), ('4')");
    EXPECT_EQ(messages(2), (Texts{"1", "2", "4"}));
    EXPECT_EQ(messages(1), Texts{});
    EXPECT_EQ(messages(2.5), Texts{});
    EXPECT_EQ(messages(std::int64_t{9007199254740993}), Texts{"7"});
    EXPECT_EQ(messages(4), Texts{"8"});
    EXPECT_EQ(messages("text"), Texts{"6"});
    connection->commit();
    other("DELETE FROM messages WHERE IDMessage = 2");
    EXPECT_EQ(messages(2), (Texts{"1", "4"}));
    connection->commit();
    other("DELETE FROM messages; DELETE FROM sqlite_sequence"); // keys begin anew
    EXPECT_EQ(messages(2), Texts{});
    connection->commit();
    three();
    EXPECT_EQ(messages(2), Texts{"2"});
}

TEST_F(SqliteSideTablesTest, ActivityIsThatOfTheLogWhoeverChangesIt)
{
    connection->run(kInsertUser, Values{"anna", "", "", "", ""});
    connection->run(kInsertUser, Values{"bert", "", "", "", ""});
    EXPECT_EQ(last("anna"), Texts{});
    log("anna", "2026-02-20 10:00:00");
    log("ANNA", "2026-02-10 10:00:00");
    EXPECT_EQ(last("anna"), Texts{"2026-02-20 10:00:00"}) << "in the same turn";
    connection->commit();
    log("bert", "2026-03-01 10:00:00");
    log("anna", "2026-02-25 10:00:00");
    connection->commit();
    EXPECT_EQ(last("anna"), Texts{"2026-02-25 10:00:00"});
    EXPECT_EQ(days(), (Texts{"20", "1"}));
    connection->commit();

    other("UPDATE log SET ActionTime = '2026-02-22 10:00:00' WHERE ActionTime LIKE '2026-02-25%'");
    EXPECT_EQ(last("anna"), Texts{"2026-02-22 10:00:00"});
    connection->commit();
    other("DELETE FROM log WHERE UserName = 'anna' AND ActionTime < '2026-02-15'");
    EXPECT_EQ(days(), (Texts{"10", "1"}));
    connection->commit();
    other(
        "INSERT INTO log (UserName, ActionTime) VALUES (NULL, '2020-01-01'), ('bert', NULL), ('Bert', 'x')");
    EXPECT_EQ(last("bert"), Texts{"x"}) << "the greatest text, as ever";
    EXPECT_EQ(days(), (Texts{"10", "1"}));
    connection->commit();
    connection->run(kDeleteOldLog, Values{0});
    EXPECT_EQ(days(), Texts{});
}

TEST_F(SqliteSideTablesTest, ActivityIsKeptUpBetweenTheTurns)
{
    const auto seen = [&] {
        return other("SELECT SeenUntil FROM useractivityseen").front();
    };
    clock.advance(std::chrono::seconds(1));
    for (int i = 0; i < 1'200; ++i) {
        log("anna", "2026-03-01 10:00:00");
    }
    connection->commit();
    const auto write_a_line = [&] {
        clock.advance(std::chrono::seconds(1));
        log("anna", "2026-03-01 10:00:00");
        connection->commit();
    };
    EXPECT_EQ(seen(), "500");
    write_a_line();
    EXPECT_EQ(seen(), "1000");
    write_a_line();
    EXPECT_EQ(seen(), "1202");
}

TEST_F(SqliteSideTablesTest, AnOlderFileGetsThemFilled)
{
    connection->run(kInsertUser, Values{"anna", "", "", "", ""});
    connection->Close();
    other("DROP TABLE useractivity; DROP TABLE useractivityseen; DROP TABLE messagenumbers;"
          "DROP TABLE messagenumbersseen; DROP TRIGGER log_removed; DROP TRIGGER log_changed;"
          "DROP TRIGGER messages_removed; DROP TRIGGER messages_renumbered; DROP INDEX log_LogOns;"
          "CREATE INDEX log_UserName_ActionTime ON log (UserName, ActionTime);"
          "CREATE INDEX messages_MsgID_To_From ON messages (MsgID, UserName_To, UserName_From);"
          "INSERT INTO log (UserName, ActionTime) VALUES ('anna', '2026-02-27 10:00:00');"
          "INSERT INTO messages (MsgID) VALUES (3), (NULL), (3), (4); PRAGMA user_version = 3");
    open();
    EXPECT_EQ(days(), Texts{"3"});
    EXPECT_EQ(messages(3), (Texts{"1", "3"}));
    EXPECT_EQ(other("SELECT count(*) FROM sqlite_master WHERE name IN ('log_UserName_ActionTime', "
                    "'messages_MsgID_To_From')"),
        Texts{"0"});
}

} // namespace
