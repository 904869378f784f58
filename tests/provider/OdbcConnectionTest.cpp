// What only a database server can do, on the one that VELTO_TEST_PROVIDER names.
#include "base/EngineError.h"
#include "platform/SystemClock.h"
#include "platform/odbc/OdbcSession.h"
#include "store/Overrides.h"
#include "store/Query.h"
#include "support/DatabaseServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using namespace qz;
using namespace qz::platform;
using namespace qz::store::statements;
using namespace qz::store::tables;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class OdbcConnectionTest : public testing::Test {
protected:
    OdbcConnectionTest()
    {
        times.answer = 1s;
        times.lock = 200ms;
        times.first_retry = 50ms;
        times.longest_retry = 500ms;
        connection = open(true);
        other = open(false);
    }

    std::unique_ptr<Connection> open(bool empty)
    {
        ConnectionOptions options;
        options.overrides = store::all_overrides();
        auto made = test::make_server_connection(*test::server_under_test(), options, times, empty);
        made->Open("");
        return made;
    }
    void log(const std::string& action)
    {
        connection->add_row(kLog, {{"UserName", "RemoteIP", "Action"}, {"anna", "::1", action}});
    }
    store::Rows query(const Statement& statement, const std::vector<Value>& values = {})
    {
        return {statement, connection->query(statement, values)};
    }
    /// One column of a table as another program sees it.
    std::vector<std::string> seen(const Table& table, std::size_t column)
    {
        std::vector<std::string> values;
        for (const auto& row : other->maintenance().read_rows(table, INT64_MIN, 100'000).rows) {
            values.push_back(row.at(column).text());
        }
        return values;
    }
    std::optional<std::int32_t> failure_of(const std::function<void()>& work)
    {
        try {
            work();
            return std::nullopt;
        } catch (const EngineError& error) {
            return error.number();
        }
    }
    void add_user(const std::string& name) { add_user(*connection, name); }
    static void add_user(Connection& connection, const std::string& name)
    {
        connection.run(kInsertUser, std::vector<Value>{name, "p", "", "", ""});
    }
    /// Ends turns until the link is back.
    bool comes_back()
    {
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (
            connection->State() == ConnectionState::Closed && std::chrono::steady_clock::now() < deadline) {
            connection->commit();
            std::this_thread::sleep_for(10ms); // for another process
        }
        return connection->State() == ConnectionState::Open;
    }

    OdbcTimes times;
    std::unique_ptr<Connection> connection;
    std::unique_ptr<Connection> other;
};

constexpr Statement kSetTime{
    .stated = "UPDATE queue SET SentTime = '{}'", .sql = "UPDATE queue SET senttime = ?", .table = &kQueue};
constexpr Statement kSelectUnsent{.stated = "SELECT * FROM messages WHERE Sent = {}",
    .sql = "SELECT * FROM messages WHERE sent = ?",
    .table = &kMessages};

constexpr auto kUnspecified = number_of(DatabaseError::Unspecified);

} // namespace

TEST_F(OdbcConnectionTest, AFailingStatementFailsAlone)
{
    add_user("anna");
    log("before");
    EXPECT_EQ(failure_of([&] { add_user("ANNA"); }), number_of(DatabaseError::Constraint));
    add_user("bert");
    log("after");
    EXPECT_THAT(seen(kUsers, 1), IsEmpty()) << "the turn is not over";
    connection->commit();
    EXPECT_THAT(seen(kUsers, 1), ElementsAre("anna", "bert"));
    EXPECT_THAT(seen(kLog, 4), ElementsAre("before", "after"));
}

TEST_F(OdbcConnectionTest, WhatStoodBeforeAFailureStaysWithItsKeys)
{
    const auto room = connection->insert_row(kRooms, {{"RoomName"}, {"hall"}});
    const auto waiting = connection->insert_row(kQueue, {{"Message"}, {"text"}});
    EXPECT_TRUE(failure_of([&] { // some servers give up the whole transaction over it
        connection->run(kSetTime, std::vector<Value>{"no date"});
    }));
    connection->commit();
    EXPECT_THAT(seen(kRooms, 0), ElementsAre(std::to_string(room)));
    EXPECT_THAT(seen(kQueue, 0), ElementsAre(std::to_string(waiting)));
}

TEST_F(OdbcConnectionTest, ATurnThatIsRolledBackLeavesOnlyItsLog)
{
    add_user("anna");
    connection->commit();
    const auto mark = connection->change_mark(kUsers);
    add_user("bert");
    connection->add_row(kMessages, {{"MsgID"}, {5.0}});
    log("what happened");
    connection->rollback();
    EXPECT_NE(connection->change_mark(kUsers), mark) << "a snapshot with bert must not be believed";
    connection->commit();
    EXPECT_THAT(seen(kUsers, 1), ElementsAre("anna"));
    EXPECT_THAT(seen(kMessages, 0), IsEmpty());
    EXPECT_THAT(seen(kLog, 4), ElementsAre("what happened"));
}

TEST_F(OdbcConnectionTest, WritesThatWaitAreSeenByTheirOwnTurn)
{
    for (int i = 0; i < 300; ++i) { // several pieces
        connection->add_row(
            kMessages, {{"UserName_From", "UserName_To", "MsgID"}, {"anna", "bert", static_cast<double>(i)}});
    }
    const auto change = [&](const store::Rows& rows, const RowChange& row) {
        ASSERT_EQ(rows.size(), 1U);
        connection->update_row(kMessages, rows.front().key(), row);
    };
    const auto time = DateTime::parse("2026-03-02 09:00:00").value();
    change(query(kSelectMessage, {"Anna", "BERT", 299}), {{"Delivered", "DeliveredTime"}, {true, time}});
    EXPECT_TRUE(query(kSelectMessagesByMsgID, {299}).front()["Delivered"].boolean())
        << "it had not reached the server yet";
    change(query(kSelectMessagesByMsgID, {298}), {{"Sent"}, {true}});
    EXPECT_EQ(query(kSelectUnsent, {0}).size(), 299U) << "the change decides about the query";
    for (int i = 0; i < 50; ++i) { // many changes in one text
        change(
            query(kSelectMessagesByMsgID, {i}), {{"Sent", "SentTime"}, {i % 2 == 0, time.plus_seconds(i)}});
    }
    connection->commit();
    const auto row = query(kSelectMessagesByMsgID, {48});
    EXPECT_TRUE(row.front()["Sent"].boolean());
    EXPECT_EQ(row.front()["SentTime"].date().text(), "2026-03-02 09:00:48");
    EXPECT_EQ(seen(kMessages, 0).size(), 300U);
}

TEST_F(OdbcConnectionTest, ARowThatIsGoneIsReported)
{
    const auto key = connection->insert_row(kAutoReply, {{"Message"}, {"a"}});
    connection->commit();
    other->delete_row(kAutoReply, key);
    other->commit();
    EXPECT_EQ(failure_of([&] {
        connection->update_row(kAutoReply, key, {{"Enabled"}, {true}});
    }),
        number_of(DatabaseError::RowGone));
    EXPECT_EQ(
        failure_of([&] { connection->delete_row(kAutoReply, key); }), number_of(DatabaseError::RowGone));
    const auto stays = connection->insert_row(kAutoReply, {{"Message"}, {"b"}});
    connection->update_row(kAutoReply, stays, {{"Message"}, {"b"}}); // nothing changes, yet the row is there
}

TEST_F(OdbcConnectionTest, WhatATurnDoesToARowIsWrittenOnce)
{
    // Whatever an array, a text or a null could be mistaken for.
    const std::vector<std::string> texts{
        "NULL", "null", "", "{1,2}", "a,b", "\"", "\\", "\\\"", " x ", "'; --", "Zo\xC3\xAB\n"};
    std::vector<std::int64_t> keys;
    for (const auto& text : texts) {
        keys.push_back(connection->insert_row(
            kQueue, {{"UserName_From", "Message", "MsgID"}, {"anna", text, 4.5e15 + 1}}));
    }
    EXPECT_THAT(keys, testing::WhenSorted(testing::ContainerEq(keys)));
    connection->update_row(kQueue, keys[0], {{"Sent"}, {true}});
    connection->delete_row(kQueue, keys[1]);
    std::vector<std::string> left{"NULL"};
    if (test::server_under_test()->locks_rows()) {
        left.emplace_back("of another program"); // its key is nobody else's
        other->insert_row(kQueue, {{"Message"}, {left.back()}});
        other->commit();
    }
    connection->commit();
    const auto rows = other->maintenance().read_rows(kQueue, keys.front() - 1, 100).rows;
    ASSERT_EQ(rows.size(), texts.size() - 2 + left.size()); // one is deleted
    EXPECT_TRUE(rows[0][9].boolean());
    EXPECT_TRUE(rows[0][5].is_null()) << "never set";
    for (std::size_t i = 1; i < texts.size() - 1; ++i) {
        EXPECT_EQ(rows[i][0].number(), static_cast<double>(keys[i + 1]));
        EXPECT_EQ(rows[i][4].text(), texts[i + 1]);
        EXPECT_EQ(rows[i][3].number(), 4.5e15 + 1);
    }
    for (const auto key : keys) { // stored by now, but for one
        connection->update_row(kQueue, key, {{"SentTime"}, {DateTime::parse("2026-03-02 09:00:00").value()}});
    }
    for (std::size_t i = 2; i < keys.size(); ++i) {
        connection->delete_row(kQueue, keys[i]);
    }
    EXPECT_EQ(
        failure_of([&] { connection->delete_row(kQueue, keys[2]); }), number_of(DatabaseError::RowGone));
    connection->commit();
    EXPECT_EQ(seen(kQueue, 4), left);
    EXPECT_EQ(seen(kQueue, 10).front(), "2026-03-02 09:00:00");
}

TEST_F(OdbcConnectionTest, MarksForeignChangesOnly)
{
    const auto first = connection->change_mark(kUsers);
    connection->commit();
    other->add_row(kLog, {{"UserName", "RemoteIP", "Action"}, {"a", "b", "c"}});
    other->run(kInsertCommand, std::vector<Value>{"a", "b"});
    other->commit();
    EXPECT_EQ(connection->change_mark(kUsers), first);
    query(kSelectLastLogOn, {"anna"});
    EXPECT_NE(connection->change_mark(kLog), connection->change_mark(kLog)) << "nobody counts its changes";
    EXPECT_EQ(connection->change_mark(kUsers), first) << "and that is no concern of others";
    EXPECT_EQ(query(kSelectCommands).size(), 1U);
    EXPECT_TRUE(query(kSelectUser, {"anna"}).empty());
    add_user(*other, "anna");
    other->run(kDeleteAllCommands, {});
    other->commit();
    connection->commit();
    EXPECT_NE(connection->change_mark(kUsers), first);
    EXPECT_TRUE(query(kSelectCommands).empty());
    EXPECT_EQ(query(kSelectUser, {"anna"}).size(), 1U);
    EXPECT_TRUE(query(kSelectUser, {"bert"}).empty()) << "what is kept is kept by its values";
}

TEST_F(OdbcConnectionTest, AQueryOfTwoTablesIsNotKeptByTheMarkOfOne)
{
    add_user("anna");
    const auto last = [&] {
        return query(kSelectAccountsWithLastLogOn).front()["LogOnTime"].text();
    };
    EXPECT_EQ(last(), "");
    connection->insert_row(
        kLastLogOn, {{"UserName", "LogOnTime"}, {"anna", DateTime::parse("2026-03-02 09:00:00").value()}});
    EXPECT_EQ(last(), "2026-03-02 09:00:00");
}

TEST_F(OdbcConnectionTest, ReadsOneMomentWhileOthersWrite)
{
    if (!test::server_under_test()->locks_rows()) {
        GTEST_SKIP();
    }
    connection->maintenance().begin_reading();
    EXPECT_THAT(connection->maintenance().count_rows(kRooms), 0U);
    add_user(*other, "anna");
    other->commit();
    EXPECT_EQ(connection->maintenance().count_rows(kUsers), 0U);
    connection->maintenance().roll_back();
    EXPECT_EQ(connection->maintenance().count_rows(kUsers), 1U);
}

TEST_F(OdbcConnectionTest, KeepsEveryCharacter)
{
    std::string text = "Zo\xC3\xAB \xF0\x9F\x98\x80 \\ \\' \" ` %_ ?:$1 \xE2\x80\x99 \n\t end";
    for (int i = 0; i < 4; ++i) {
        connection->insert_row(kQueue, {{"Message"}, {text}});
        connection->commit();
        EXPECT_EQ(seen(kQueue, 4), std::vector<std::string>{text});
        connection->maintenance().delete_rows(kQueue);
        text += text + text + text + text; // up to 6,000 characters
    }
}

TEST_F(OdbcConnectionTest, CountsDaysByTheServersDate)
{
    const auto now = SystemClock().now();
    add_user("anna");
    for (const int days : {0, 6, 7, 8}) {
        connection->insert_row(kLog,
            {{"ActionTime", "UserName", "RemoteIP", "Action"},
                {now.plus_seconds(-86400 * days), "anna", "::1",
                    "LogOn successfully for " + std::to_string(days)}});
    }
    EXPECT_EQ(query(kSelectRecentLogOn, {0, "Anna"}).size(), 1U);
    EXPECT_EQ(query(kSelectInactiveUsers, {8}).size(), 1U);
    EXPECT_EQ(query(kSelectInactiveUsers, {9}).size(), 0U);
    const auto last = query(kSelectLastActivity, {"anna"});
    EXPECT_LT(std::abs(seconds_between(last.front()["LastOfActionTime"].date(), now)), 60);
    connection->run(kDeleteOldLog, std::vector<Value>{7});
    const auto lines = query(kSelectLogLines, {10});
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines.front()["MyLog"].text(), HasSubstr("/anna/")) << "newest first";
    const auto user = query(kSelectUser, {"anna"});
    EXPECT_LT(std::abs(seconds_between(user.front()["CreationTime"].date(), now)), 60) << "set by the server";
}

TEST_F(OdbcConnectionTest, RefusesAWrongPassword)
{
    connection->Close();
    EXPECT_EQ(failure_of([&] { connection->Open(test::server_under_test()->connection_string("wrong")); }),
        number_of(DatabaseError::LogonFailed));
    EXPECT_EQ(failure_of([&] { add_user("anna"); }), number_of(DatabaseError::ConnectionClosed));
    EXPECT_EQ(failure_of([&] { query(kProbe); }), number_of(DatabaseError::ConnectionClosed));
    EXPECT_EQ(failure_of([&] { log("nowhere"); }), number_of(DatabaseError::ConnectionClosed));
}

TEST_F(OdbcConnectionTest, ALockFailsItsStatementsAndNothingElse)
{
    const auto key = connection->insert_row(kAutoReply, {{"UserName"}, {"anna"}});
    connection->commit();
    other->update_row(kAutoReply, key, {{"Message"}, {"mine"}}); // and keeps the turn open
    log("goes on");
    const auto change = [&] {
        connection->update_row(kAutoReply, key, {{"Message"}, {"yours"}});
    };
    EXPECT_EQ(failure_of(change), kUnspecified);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(failure_of(change), kUnspecified);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1500ms) << "who waited in vain does not wait again";
    EXPECT_EQ(connection->State(), ConnectionState::Open);
    connection->commit();
    other->commit();
    change();
    connection->commit();
    EXPECT_THAT(seen(kAutoReply, 2), ElementsAre("yours"));
    EXPECT_THAT(seen(kLog, 4), ElementsAre("goes on"));
}

TEST_F(OdbcConnectionTest, AFrozenServerHoldsNobodyUpForLong)
{
    add_user("anna"); // written, not committed: goes with its turn
    SystemClock machine;
    const auto event = machine.now();
    log("before");
    const auto after_event = machine.now();
    auto& program = test::server_under_test()->program();
    program.freeze();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(failure_of([&] { add_user("bert"); }), kUnspecified);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    EXPECT_EQ(connection->State(), ConnectionState::Closed);
    EXPECT_EQ(failure_of([&] { add_user("carl"); }), number_of(DatabaseError::ConnectionClosed));
    log("meanwhile");
    EXPECT_THAT(connection->take_notices(),
        ElementsAre("Database connection lost: the database server did not answer within 1 seconds"));
    program.send_signal_to_all(SIGCONT);
    ASSERT_TRUE(comes_back());
    EXPECT_THAT(connection->take_notices(), ElementsAre(HasSubstr("Database connection restored after ")));
    add_user("dora");
    connection->commit();
    EXPECT_THAT(seen(kUsers, 1), ElementsAre("dora"));
    EXPECT_THAT(seen(kLog, 4), ElementsAre("before", "meanwhile"));
    const auto time = DateTime::parse(seen(kLog, 1).front()).value();
    EXPECT_TRUE(time >= event && time <= after_event) << "its insert came a second later: " << time.text();
}

TEST_F(OdbcConnectionTest, ComesBackToItsOwnTablesOnly)
{
    OdbcSession control(test::server_under_test()->connection_string());
    const auto version = std::to_string(connection->maintenance().schema_version());
    const auto use = [&](const std::string& sql) {
        control.run({{"DELETE FROM velto_schema"}});
        const auto outcome = control.run({{sql}});
        EXPECT_FALSE(outcome.failure);
    };
    auto& program = test::server_under_test()->program();
    program.freeze();
    EXPECT_EQ(failure_of([&] { add_user("bert"); }), kUnspecified);
    program.send_signal_to_all(SIGCONT);
    connection->take_notices();
    for (const auto& [stored, reason] : std::vector<std::pair<std::string, std::string>>{
             {"INSERT INTO velto_schema (version) VALUES (99)",
                 "has schema version 99, which is newer than this program"},
             {"INSERT INTO velto_schema (version) VALUES (1)",
                 "has schema version 1, but had " + version + " before"},
             {"DELETE FROM velto_schema", "has schema version 0, but had " + version + " before"}}) {
        SCOPED_TRACE(reason);
        use(stored);
        std::vector<std::string> notices;
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (notices.empty() && std::chrono::steady_clock::now() < deadline) {
            connection->commit();
            notices = connection->take_notices();
            std::this_thread::sleep_for(10ms); // for another process
        }
        EXPECT_THAT(notices, ElementsAre(HasSubstr(reason)));
        EXPECT_EQ(connection->State(), ConnectionState::Closed);
    }
    use("INSERT INTO velto_schema (version) VALUES (" + version + ")");
    ASSERT_TRUE(comes_back());
    EXPECT_THAT(connection->take_notices(), ElementsAre(HasSubstr("Database connection restored after ")));
}

TEST_F(OdbcConnectionTest, SurvivesAKilledServer)
{
    add_user("anna");
    connection->commit();
    log("before");
    auto* server = test::server_under_test();
    server->program().end();
    EXPECT_EQ(failure_of([&] { connection->commit(); }), kUnspecified);
    for (int i = 0; i < 30'000; ++i) { // more than is kept
        log(i == 29'999 ? "last" : "meanwhile");
    }
    connection->commit();
    server->start();
    ASSERT_TRUE(comes_back());
    EXPECT_THAT(connection->take_notices(),
        ElementsAre(
            HasSubstr("Database connection lost: "), HasSubstr("; 10001 log lines could not be kept")));
    connection->commit();
    other = open(false);
    EXPECT_EQ(seen(kLog, 4).size(), 20'000U);
    EXPECT_EQ(seen(kLog, 4).front(), "meanwhile") << "the oldest go first";
    EXPECT_EQ(seen(kLog, 4).back(), "last");
    EXPECT_THAT(seen(kUsers, 1), ElementsAre("anna"));
}

TEST_F(OdbcConnectionTest, OlderTablesAreBroughtUpToDateWithWhatIsInThem)
{
    connection->insert_row(kQueue, {{"UserName_To", "Message"}, {"ben", "old"}});
    connection->Close();
    other->Close();
    {
        OdbcSession session(test::server_under_test()->connection_string());
        for (const auto* text : {"DROP TABLE queuetext", "ALTER TABLE queue DROP COLUMN IDQueueText",
                 "UPDATE velto_schema SET version = 2"}) {
            const auto outcome = session.run({{text}});
            EXPECT_FALSE(outcome.failure) << text << ": " << outcome.failure->description;
        }
    }
    connection = open(false);
    other = open(false);
    EXPECT_EQ(connection->maintenance().schema_version(), connection->maintenance().current_schema_version());
    const auto text = connection->insert_row(kQueueText, {{"Message"}, {"new"}});
    connection->insert_row(kQueue, {{"UserName_To", "IDQueueText"}, {"ben", text}});
    connection->insert_row(kQueueText, {{"Message"}, {"taken back"}});
    connection->delete_row(kQueueText, text + 1);
    connection->commit();
    EXPECT_THAT(seen(kQueue, 4), ElementsAre("old", ""));
    EXPECT_THAT(seen(kQueue, 11), ElementsAre("", std::to_string(text)));
    EXPECT_THAT(seen(kQueueText, 1), ElementsAre("new"));
}
