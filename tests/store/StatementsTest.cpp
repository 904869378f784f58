#include "store/Statements.h"

#include "base/EngineError.h"
#include "support/MemoryStore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

using namespace qz::store::statements;
using namespace qz::store::tables;
using qz::platform::Statement;
using qz::platform::Value;

namespace {

const std::vector<const Statement*>& all_statements()
{
    static const std::vector<const Statement*> all{&kSelectUsers, &kSelectUser, &kSelectUserForDetails,
        &kSelectPassword, &kSelectPasswordForSetting, &kSelectPlainPasswords, &kInsertUser, &kSelectUserNames,
        &kSelectUserNamesForActivity, &kSelectClientVersions, &kSelectClientInUse, &kCountUsers, &kProbe,
        &kSelectBuddies, &kCountBuddies, &kCountBuddyEntries, &kSelectDuplicatedBuddies, &kSelectBuddyEntries,
        &kSelectNewBuddyEntries, &kDeleteBuddy, &kInsertBuddy, &kUpdateBuddy, &kSelectBuddyKey, &kSelectRooms,
        &kSelectOwnedRoom, &kSelectNewRooms, &kCountRooms, &kSelectMessage, &kFindMessage,
        &kSelectLastMessage, &kSelectMsgIDs, &kSelectMessagesByMsgID, &kSelectMessagesOfRecipient,
        &kSelectQueue, &kSelectQueueTexts, &kFindQueueRow, &kSelectQueueCount, &kInsertLogRow, &kDeleteOldLog,
        &kSelectOldestLogRow, &kDeleteFirstOldLogRows, &kSelectLogLines, &kSelectLogTimes,
        &kSelectLastActivity, &kSelectInactiveUsers, &kSelectRecentLogOn, &kSelectCommands, &kInsertCommand,
        &kDeleteCommand, &kDeleteAllCommands, &kSelectAutoReply, &kSelectAutoReplyEnabled,
        &kSelectAutoReplyMessage, &kSelectLastLogOn, &kSelectAccountsWithLastLogOn};
    return all;
}

/// A value for each place of the stated text: `text` between quotes, the number 5 elsewhere.
std::vector<Value> values_for(const Statement& statement, const std::string& text)
{
    std::vector<Value> values;
    const auto stated = statement.stated;
    for (auto place = stated.find("{}"); place != std::string_view::npos;
         place = stated.find("{}", place + 1)) {
        const bool quoted = stated[place - 1] == '\'';
        values.push_back(quoted ? Value(text) : Value(5));
    }
    if (&statement == &kSelectPlainPasswords) {
        values[0] = 5; // the length of the text
    } else if (&statement == &kSelectOwnedRoom) {
        values[1] = text; // a whole literal
    }
    return values;
}

class StatementsTest : public testing::Test, protected qz::test::MemoryStore {
protected:
    StatementsTest()
    {
        add(kUsers, {{"UserName", "anna"}, {"Password", "secret"}, {"Email", "a@example.org"}});
        add(kUsers, {{"UserName", "bert"}, {"Password", "#coded"}});
        add(kMessages, {{"UserName_From", "anna"}, {"UserName_To", "bert"}, {"MsgID", 5}});
        add(kLog, {{"UserName", "anna"}, {"RemoteIP", "::1"}, {"Action", "LogOn successfully"}});
        database.turn_ended(); // a turn that is run again has another time
    }

    using MemoryStore::column;
    template <typename... Values>
    std::vector<std::string> column(
        const Statement& statement, std::string_view field, const Values&... values)
    {
        std::vector<std::string> texts;
        for (const auto& row : database.query(statement, values...)) {
            texts.push_back(row[field].text());
        }
        return texts;
    }

    using Texts = std::vector<std::string>;
};

} // namespace

TEST(Statements, HaveAParameterForEachPlaceOnEveryDatabase)
{
    const auto overrides = qz::store::all_overrides();
    for (const auto* statement : all_statements()) {
        const auto count = values_for(*statement, "").size();
        for (const auto& of_database :
            {overrides.sqlite, overrides.postgresql, overrides.mariadb, overrides.sql_server}) {
            const auto sql = override_of(*statement, of_database).sql;
            EXPECT_EQ(static_cast<std::size_t>(std::count(sql.begin(), sql.end(), '?')), count) << sql;
            EXPECT_FALSE(sql.empty()) << statement->stated;
        }
    }
}

TEST(Statements, AllRunWithAnyText)
{
    const qz::test::ManualClock clock;
    qz::test::MemoryDatabase database(clock);
    for (const auto* text : {"x", "O'Brien", "'; DROP TABLE users; --", "?", ""}) {
        for (const auto* statement : all_statements()) {
            const auto values = values_for(*statement, text);
            try {
                if (statement->stated.starts_with("SELECT")) {
                    database.connection().query(*statement, values);
                } else {
                    database.connection().run(*statement, values);
                }
            } catch (const qz::EngineError& error) {
                ADD_FAILURE() << statement->stated << ": " << error.description();
            }
        }
    }
}

TEST_F(StatementsTest, ComparesTextWithoutRegardToCase)
{
    EXPECT_EQ(column(kSelectUser, "UserName", "ANNA"), Texts{"anna"});
    try {
        database.run(kInsertUser, "Anna", "", "", "", "");
        FAIL();
    } catch (const qz::EngineError& error) {
        EXPECT_EQ(error.number(), number_of(qz::DatabaseError::Constraint));
    }
}

TEST_F(StatementsTest, FindsPasswordsWithoutTheMarker)
{
    add(kUsers, {{"UserName", "carl"}});
    add(kUsers, {{"UserName", "dora"}, {"Password", "x#coded"}});
    add(kUsers, {{"UserName", "emil"}, {"Password", ""}});
    EXPECT_EQ(column(kSelectPlainPasswords, "password", 1, "#"), (Texts{"secret", "x#coded", ""}))
        << "a missing password is not a plain one";
    EXPECT_EQ(column(kSelectPlainPasswords, "password", 6, "#coded"), (Texts{"secret", "x#coded", ""}));
    for (const auto& row : database.query(kSelectPlainPasswords, 1, "#")) {
        database.update(kUsers, row.key(), {{"Password"}, {"#" + row["Password"].text()}});
    }
    EXPECT_EQ(column(kSelectPlainPasswords, "Password", 1, "#"), Texts{});
    EXPECT_EQ(column(kUsers, "Password"), (Texts{"#secret", "#coded", "", "#x#coded", "#"}));
}

TEST_F(StatementsTest, ListsDuplicatedBuddiesNewestFirst)
{
    const auto oldest = add(kBuddies, {{"UserName", "carl"}, {"Buddy", "dora"}});
    add(kBuddies, {{"UserName", "anna"}, {"Buddy", "dora"}});
    add(kBuddies, {{"UserName", "carl"}, {"Buddy", "bert"}});
    const auto newest = add(kBuddies, {{"UserName", "CARL"}, {"Buddy", "Dora"}});
    for (int i = 0; i < 2; ++i) { // rows without an owner or a buddy are nobody's duplicates
        add(kBuddies, {{"Buddy", "dora"}});
        add(kBuddies, {{"UserName", "dora"}});
    }
    EXPECT_EQ(column(kSelectDuplicatedBuddies, "IDBuddies"),
        (Texts{std::to_string(newest), std::to_string(oldest)}));
    EXPECT_EQ(column(kCountBuddyEntries, "CountOfBuddy", "carl", "dora"), Texts{"2"});
    EXPECT_EQ(column(kSelectDuplicatedBuddies, "UserName").front(), "CARL");
    database.remove(kBuddies, newest);
    EXPECT_EQ(column(kSelectDuplicatedBuddies, "IDBuddies"), Texts{});
}

TEST_F(StatementsTest, FindsTheNewestOfEqualMessages)
{
    const auto newer = add(kMessages, {{"UserName_From", "anna"}, {"UserName_To", "bert"}, {"MsgID", 5}});
    add(kMessages, {{"UserName_From", "anna"}, {"UserName_To", "carl"}, {"MsgID", 5}});
    add(kMessages, {{"UserName_From", "anna"}, {"UserName_To", "bert"}, {"MsgID", 9007199254740991.0}});
    const auto rows = database.query(kSelectMessage, "Anna", "bert", 5.0);
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows.front().key(), newer);
    EXPECT_EQ(column(kSelectMessagesByMsgID, "MsgID", 9007199254740991.0), Texts{"9007199254740991"});
}

TEST_F(StatementsTest, ListsTheNewestLogLines)
{
    clock.set_now(qz::DateTime::parse("2026-03-04 05:06:07").value());
    add(kLog, {{"UserName", "bert"}, {"RemoteIP", "10.0.0.1"}, {"Action", "did it"}});
    EXPECT_EQ(column(kSelectLogLines, "MyLog", 1), Texts{"2026-03-04 05:06:07/bert/10.0.0.1/did it"});
    EXPECT_EQ(column(kSelectLogLines, "MyLog", 5).size(), 2U);
    EXPECT_EQ(column(kSelectLogLines, "MyLog", 0).size(), 0U);
}

TEST_F(StatementsTest, DeletesLogRowsFromAnAgeOn)
{
    const auto rows_left = [&] {
        return column(kLog, "IDLog").size();
    };
    clock.set_now(qz::DateTime::parse("2026-03-08 23:59:59").value()); // the row is of 2 March, 09:00
    database.run(kDeleteOldLog, 7);
    EXPECT_EQ(rows_left(), 1U) << "six midnights, though nearly seven days";
    clock.advance(std::chrono::seconds(1));
    add(kLog, {{"UserName", "bert"}, {"RemoteIP", "::1"}, {"Action", "x"}});
    database.run(kDeleteOldLog, 7);
    EXPECT_EQ(rows_left(), 1U);
    EXPECT_EQ(column(kSelectLogLines, "MyLog", 5), Texts{"2026-03-09 00:00:00/bert/::1/x"});
}

TEST_F(StatementsTest, MeasuresInactivityByTheOldestRow)
{
    const auto log = [&](const char* user, const char* time, const char* action) {
        add(kLog, {{"UserName", user}, {"ActionTime", time}, {"Action", action}});
    };
    log("anna", "2026-02-20 23:00:00", "left");
    log("bert", "2026-02-20 08:00:00", "LogOn failed");
    log("nobody", "2020-01-01 00:00:00", "LogOn successfully"); // has no account
    log("bert", "no date", "LogOn successfully");

    EXPECT_EQ(column(kSelectInactiveUsers, "DaysAgo", 10), (Texts{"10", "10"}));
    EXPECT_EQ(column(kSelectInactiveUsers, "UserName", -4), (Texts{"anna", "bert"}));
    EXPECT_EQ(column(kSelectInactiveUsers, "UserName", 11), Texts{});

    EXPECT_EQ(column(kSelectLastActivity, "LastOfActionTime", "ANNA"), Texts{"2026-03-02 09:00:00"});
    EXPECT_EQ(column(kSelectLastActivity, "LastOfActionTime", "nobody"), Texts{});

    EXPECT_EQ(column(kSelectRecentLogOn, "DaysAgo", 0, "anna"), Texts{"0"});
    EXPECT_EQ(column(kSelectRecentLogOn, "DaysAgo", 90, "bert"), Texts{});
    clock.advance(std::chrono::hours(24));
    EXPECT_EQ(column(kSelectRecentLogOn, "DaysAgo", 0, "anna"), Texts{});
    EXPECT_EQ(column(kSelectRecentLogOn, "DaysAgo", 1, "anna"), Texts{"1"});
}

TEST_F(StatementsTest, SetsDefaultsByTheClock)
{
    database.run(kInsertUser, "eva", "p", "Eva", "E", "e@example.org");
    const auto rows = database.query(kSelectUser, "eva");
    EXPECT_TRUE(rows.front()["AccountActive"].boolean());
    EXPECT_EQ(rows.front()["CreationTime"].date(), clock.now());
    EXPECT_TRUE(rows.front()["IMClientInUse"].is_null());
}
