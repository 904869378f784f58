#include "store/Statements.h"

#include "base/EngineError.h"
#include "platform/database/Recordset.h"
#include "support/ManualClock.h"
#include "support/MemoryDatabase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

using namespace std::string_literals;
using namespace qz::store::statements;
using namespace qz::store::tables;
using qz::EngineError;
using qz::platform::fill;
using qz::platform::Recordset;
using qz::platform::Statement;
using qz::test::all_tables;
using qz::test::ManualClock;
using qz::test::MemoryDatabase;

namespace {

/// Fills every hole: the quoted ones with `text`, the bare ones with `bare`.
std::string filled(const Statement& statement, std::string_view text, std::string_view bare)
{
    std::string result;
    std::string_view rest = statement.text;
    for (auto hole = rest.find("{}"); hole != std::string_view::npos; hole = rest.find("{}")) {
        const bool quoted = hole > 0 && rest[hole - 1] == '\'';
        result.append(rest.substr(0, hole)).append(quoted ? text : bare);
        rest.remove_prefix(hole + 2);
    }
    return result.append(rest);
}

std::string long_text(std::size_t size, char c)
{
    return std::string().append(size, c);
}

std::string doubled(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        result += c == '\'' ? "''"s : std::string(1, c);
    }
    return result;
}

class StatementsTest : public testing::Test {
protected:
    StatementsTest()
    {
        database.add(kUsers, {{"UserName", "anna"}, {"Password", "secret"}, {"Email", "a@example.org"}});
        database.add(kUsers, {{"UserName", "bert"}, {"Password", "#coded"}});
        database.add(kBuddies, {{"UserName", "anna"}, {"Buddy", "bert"}, {"Group", "friends"}});
        database.add(kRooms, {{"RoomName", "lobby"}, {"UserName_Owner", "anna"}});
        database.add(kMessages, {{"UserName_From", "anna"}, {"UserName_To", "bert"}, {"MsgID", 5}});
        database.add(kLog, {{"UserName", "anna"}, {"RemoteIP", "::1"}, {"Action", "LogOn successfully"}});
        database.add(kCommand, {{"action", "Shutdown"}, {"Parameters", "now"}});
        database.add(kAutoReply, {{"UserName", "anna"}, {"Message", "away"}, {"Enabled", true}});
        database.connection().end_turn(); // a turn that is run again has another time
    }

    std::string everything()
    {
        std::string text;
        for (const auto& table : all_tables()) {
            for (const auto& row : database.rows(table).rows) {
                for (const auto& value : row) {
                    text += (value.is_null() ? "NULL" : value.text()) + "|";
                }
                text += "\n";
            }
        }
        return text;
    }

    /// @return the number of the failure, none when the text was run.
    std::optional<std::int32_t> failure_of(const std::string& sql)
    {
        try {
            database.connection().query(sql);
            return std::nullopt;
        } catch (const EngineError& error) {
            return error.number();
        }
    }

    std::vector<std::string> column(const std::string& sql, std::string_view field)
    {
        std::vector<std::string> values;
        Recordset set(database.connection());
        set.Open(sql);
        for (; !set.AtEnd(); set.MoveNext()) {
            values.push_back(set.Fields(field).text());
        }
        return values;
    }

    using Texts = std::vector<std::string>;
    ManualClock clock;
    MemoryDatabase database{clock};
};

constexpr auto kSyntax = number_of(qz::DatabaseError::Syntax);

/// Servers take nothing but a date there, where the embedded database takes any text.
bool takes_date_on_server(const Statement& statement)
{
    return qz::test::server_under_test() != nullptr
        && statement.text.find("Time = '{}'") != std::string_view::npos;
}

} // namespace

TEST_F(StatementsTest, AllRunWithValuesOfEveryKind)
{
    // The second round meets the account that the first one inserted only when the name is the same.
    const std::pair<const char*, const char*> values[] = {
        {"x", "5"}, {"O'Brien", "-3"}, {"'; DROP TABLE users; --", "0"}, {"", "'it''s'"}, {"{}", "1.5"}};
    const bool on_server = qz::test::server_under_test() != nullptr;
    for (const auto& [text, bare] : values) {
        for (const auto& statement : qz::store::all_statements()) {
            const bool counts = statement.text.starts_with("SELECT TOP {}");
            // Servers refuse to compare a number with a text, and a whole number with a broken one.
            const bool takes_texts = statement.text.find("UserName_Owner = {}") != std::string_view::npos;
            const bool whole = on_server && !takes_texts
                && std::string_view(bare).find_first_of("'.") != std::string_view::npos;
            const auto value = takes_date_on_server(statement) ? "2026-11-23 10:00:00" : doubled(text);
            const auto sql = filled(statement, value, counts || whole ? "5" : bare);
            EXPECT_EQ(failure_of(sql), std::nullopt) << sql;
        }
    }
}

TEST_F(StatementsTest, NoTextBecomesPartOfAStatement)
{
    const std::string hostile[] = {"'", "x'", "'x", "x' OR '1'='1", "x' OR 1=1 --", "x' OR 1=1;", "' OR ''='",
        "x'; DROP TABLE users", "x'; DROP TABLE users; --", "x'; DELETE FROM users WHERE 'a'='a",
        "x' UNION SELECT Password FROM users --", "x' UNION ALL SELECT * FROM users WHERE UserName = 'anna",
        "x' AND (SELECT COUNT(*) FROM users) > 0 AND 'a'='a", "x' --", "x' /*", "x'/**/OR/**/'1'='1", "x' #",
        "x'||'y", "x' || Password || '", "x'+'y", "x' + Password + '", "x' LIKE '%", "x\\' OR 1=1 --", "\\",
        "\\'", "x' IN (SELECT UserName FROM users) OR 'a'='b", "x' = 'x", "anna' AND 'a'='a", "anna' -- ",
        "anna' ORDER BY 1 --", "anna' COLLATE NOCASE --", "x', 'y", "x' , 'y", "x','y','z','u','v",
        "x', (SELECT Password FROM users LIMIT 1), '", "x'), ('y", "x')--", "x'); DELETE FROM users; --",
        "x' WHERE 1=1 --", "x', Password = 'y", "x'\nOR\n'1'='1", "x'\tOR\t'1'='1", "x'\0--"s, "x\0y"s, "\0"s,
        "x' AND randomblob(1000000000) AND 'a'='a", "x' AND load_extension('x') AND 'a'='a",
        "x' ATTACH DATABASE '/tmp/x' AS y --", "x'; PRAGMA user_version=9; --", "x'; BEGIN; --", "x'; COMMIT",
        R"(x" OR "1"="1)", "x` OR `1`=`1", "[x]", "x' OR [UserName] = 'anna", "x' OR UserName <> '", "x'''",
        "%' OR '%'='", "\xFF\xFE' OR 1=1", "\xC0\xA7 OR 1=1", "\xE2\x80\x99 OR 1=1", "\xEF\xBC\x87 OR 1=1",
        "x' OR '1", "1' OR 1", "'''' OR 1=1", "''''' OR 1=1", std::string(1000, '\''),
        long_text(10'000'000, 'x'), long_text(10'000'001, '\'')};
    const auto before = everything();
    for (const auto& value : hostile) {
        const bool shown_whole = value.size() <= 100;
        for (const auto& statement : qz::store::all_statements()) {
            if (statement.text.starts_with("INSERT")
                || statement.text.find("'{}'") == std::string_view::npos) {
                continue;
            }
            const auto sql = filled(statement, value, "7");
            const auto failure = failure_of(sql);
            EXPECT_TRUE(!failure || failure == kSyntax || takes_date_on_server(statement))
                << *failure << " for " << statement.text << (shown_whole ? value : "");
        }
        EXPECT_EQ(everything(), before) << (shown_whole ? value : "long");
    }
}

TEST_F(StatementsTest, NoTextWidensAnInsert)
{
    const std::pair<std::string, std::optional<std::string>> cases[] = {{"x' , 'y", std::nullopt},
        {"x' )", std::nullopt}, {"x' ); DELETE FROM log; --", std::nullopt}, {"x'||'y", std::nullopt},
        {"x'' , ''y", "x' , 'y"}, {"\\", "\\"}, {"\xFF\xC0", "\xFF\xC0"}, {"-- /* ;", "-- /* ;"},
        {long_text(10'000'000, 'x'), long_text(10'000'000, 'x')}};
    std::int32_t count = 1;
    for (const auto& [value, stored] : cases) {
        if (qz::test::server_under_test() != nullptr && (value.size() > 1000 || value == "\xFF\xC0")) {
            continue; // servers store no such long texts, and only characters
        }
        const auto failure = failure_of(fill(kInsertLogRow, {"anna", "::1", value}));
        EXPECT_EQ(failure, stored ? std::nullopt : std::optional(kSyntax));
        count += stored ? 1 : 0;
        const auto rows = database.rows(kLog).rows;
        ASSERT_EQ(static_cast<std::int32_t>(rows.size()), count);
        if (stored) {
            EXPECT_TRUE(rows.back().back() == qz::platform::Value(*stored));
        }
    }
}

TEST_F(StatementsTest, BareHolesTakeOneLiteral)
{
    const std::string hostile[] = {"", " ", "1 OR 1=1", "1=1", "1;", "1; DELETE FROM users", "1 --", "1/**/",
        "(1)", "(SELECT 1)", "IDCommand", "NULL", "0x10", "1e5", "1 1", "'a' 'b'", "'a", "\"a\"", "a'", "- 1",
        "--1", "+1", "1-1", "1+1", "~1", "x'41'", "'1'='1'", "?", ":a", "@a", "1,1", "1\0"s,
        "9 UNION SELECT 1", std::string(50, '9')};
    const auto before = everything();
    for (const auto& value : hostile) {
        for (const auto& statement : qz::store::all_statements()) {
            if (statement.text.find("{}") == std::string_view::npos
                || filled(statement, "x", "?").find('?') == std::string::npos) {
                continue;
            }
            EXPECT_EQ(failure_of(filled(statement, "x", value)), kSyntax) << filled(statement, "x", value);
        }
    }
    for (const auto* count : {"-1", "1.5", "'1'", "1 PERCENT", "100 PERCENT *", "99999999999999999999"}) {
        EXPECT_EQ(failure_of(fill(kSelectLogLines, {count})), kSyntax) << count;
    }
    EXPECT_EQ(everything(), before);
}

TEST_F(StatementsTest, OnlyCatalogueTextsRun)
{
    for (const std::string sql : {"", ";", "DROP TABLE users", "SELECT 1", "PRAGMA user_version",
             "ATTACH 'x' AS y", "VACUUM", "BEGIN", "DELETE FROM users", "SELECT * FROM sqlite_master",
             "SELECT * FROM users;", "SELECT * FROM users order by UserName DESC",
             "UPDATE users SET Password = 'x'", "SELECT Password FROM users",
             "DELETE FROM [command]; DELETE FROM [command]", "INSERT INTO log DEFAULT VALUES"}) {
        EXPECT_EQ(failure_of(sql), kSyntax) << sql;
    }
}

TEST_F(StatementsTest, ComparesTextWithoutRegardToCase)
{
    EXPECT_EQ(column(fill(kSelectUser, {"ANNA"}), "UserName"), Texts{"anna"});
    EXPECT_EQ(
        failure_of(fill(kInsertUser, {"Anna", "", "", "", ""})), number_of(qz::DatabaseError::Constraint));
}

TEST_F(StatementsTest, FindsPasswordsWithoutTheMarker)
{
    database.add(kUsers, {{"UserName", "carl"}});
    database.add(kUsers, {{"UserName", "dora"}, {"Password", "x#coded"}});
    Recordset set(database.connection());
    set.Open(fill(kSelectPlainPasswords, {"#", "#"}));
    ASSERT_EQ(set.RecordCount(), 2) << "a missing password is not a plain one";
    EXPECT_EQ(set.Fields("password").text(), "secret");
    for (; !set.AtEnd(); set.MoveNext()) {
        set.SetField("Password", "#" + set.Fields("Password").text());
        set.Update();
    }
    EXPECT_EQ(column(fill(kSelectPlainPasswords, {"#", "#"}), "Password"), Texts{});
    EXPECT_EQ(
        column(std::string(kSelectUsers.text), "Password"), (Texts{"#secret", "#coded", "", "#x#coded"}));
}

TEST_F(StatementsTest, ListsDuplicatedBuddiesNewestFirst)
{
    const auto oldest = database.add(kBuddies, {{"UserName", "carl"}, {"Buddy", "dora"}});
    database.add(kBuddies, {{"UserName", "anna"}, {"Buddy", "dora"}});
    database.add(kBuddies, {{"UserName", "carl"}, {"Buddy", "bert"}});
    const auto newest = database.add(kBuddies, {{"UserName", "CARL"}, {"Buddy", "Dora"}});
    for (int i = 0; i < 2; ++i) { // rows without an owner or a buddy are nobody's duplicates
        database.add(kBuddies, {{"Buddy", "dora"}});
        database.add(kBuddies, {{"UserName", "dora"}});
    }
    const std::string sql(kSelectDuplicatedBuddies.text);
    EXPECT_EQ(column(sql, "IDBuddies"), (Texts{std::to_string(newest), std::to_string(oldest)}));
    EXPECT_EQ(column(fill(kCountBuddyEntries, {"carl", "dora"}), "CountOfBuddy"), Texts{"2"});
    Recordset set(database.connection());
    set.Open(sql);
    EXPECT_EQ(set.Fields("UserName").text(), "CARL");
    set.Delete();
    EXPECT_EQ(column(sql, "IDBuddies"), Texts{});
}

TEST_F(StatementsTest, FindsTheNewestOfEqualMessages)
{
    const auto newer =
        database.add(kMessages, {{"UserName_From", "anna"}, {"UserName_To", "bert"}, {"MsgID", 5}});
    database.add(kMessages, {{"UserName_From", "anna"}, {"UserName_To", "carl"}, {"MsgID", 5}});
    database.add(
        kMessages, {{"UserName_From", "anna"}, {"UserName_To", "bert"}, {"MsgID", 9007199254740991.0}});
    Recordset set(database.connection());
    set.Open(fill(kSelectMessage, {"Anna", "bert", "5"}));
    ASSERT_EQ(set.RecordCount(), 2);
    EXPECT_EQ(set.Fields("IDMessage").integer(), newer);
    EXPECT_EQ(column(fill(kSelectMessagesByMsgID, {"9007199254740991"}), "MsgID"), Texts{"9007199254740991"});
}

TEST_F(StatementsTest, ListsTheNewestLogLines)
{
    clock.set_now(qz::DateTime::parse("2026-03-04 05:06:07").value());
    database.connection().Execute(fill(kInsertLogRow, {"bert", "10.0.0.1", "did it"}));
    EXPECT_EQ(
        column(fill(kSelectLogLines, {"1"}), "MyLog"), Texts{"2026-03-04 05:06:07/bert/10.0.0.1/did it"});
    EXPECT_EQ(column(fill(kSelectLogLines, {"5"}), "MyLog").size(), 2U);
    EXPECT_EQ(column(fill(kSelectLogLines, {"0"}), "MyLog").size(), 0U);
}

TEST_F(StatementsTest, DeletesLogRowsFromAnAgeOn)
{
    const auto rows_left = [&] {
        return database.rows(kLog).rows.size();
    };
    clock.set_now(qz::DateTime::parse("2026-03-08 23:59:59").value()); // the row is of 2 March, 09:00
    database.connection().Execute(fill(kDeleteOldLog, {"7"}));
    EXPECT_EQ(rows_left(), 1U) << "six midnights, though nearly seven days";
    clock.advance(std::chrono::seconds(1));
    database.connection().Execute(fill(kInsertLogRow, {"bert", "::1", "x"}));
    database.connection().Execute(fill(kDeleteOldLog, {"7"}));
    EXPECT_EQ(rows_left(), 1U);
    EXPECT_EQ(column(fill(kSelectLogLines, {"5"}), "MyLog"), Texts{"2026-03-09 00:00:00/bert/::1/x"});
}

TEST_F(StatementsTest, MeasuresInactivityByTheOldestRow)
{
    const auto log = [&](const char* user, const char* time, const char* action) {
        database.add(kLog, {{"UserName", user}, {"ActionTime", time}, {"Action", action}});
    };
    log("anna", "2026-02-20 23:00:00", "left");
    log("bert", "2026-02-20 08:00:00", "LogOn failed");
    log("nobody", "2020-01-01 00:00:00", "LogOn successfully"); // has no account
    log("bert", "no date", "LogOn successfully");

    EXPECT_EQ(column(fill(kSelectInactiveUsers, {"10"}), "DaysAgo"), (Texts{"10", "10"}));
    EXPECT_EQ(column(fill(kSelectInactiveUsers, {"-4"}), "UserName"), (Texts{"anna", "bert"}));
    EXPECT_EQ(column(fill(kSelectInactiveUsers, {"11"}), "UserName"), Texts{});

    EXPECT_EQ(column(fill(kSelectLastActivity, {"ANNA"}), "LastOfActionTime"), Texts{"2026-03-02 09:00:00"});
    EXPECT_EQ(column(fill(kSelectLastActivity, {"nobody"}), "LastOfActionTime"), Texts{});

    EXPECT_EQ(column(fill(kSelectRecentLogOn, {"0", "anna"}), "DaysAgo"), Texts{"0"});
    EXPECT_EQ(column(fill(kSelectRecentLogOn, {"90", "bert"}), "DaysAgo"), Texts{});
    clock.advance(std::chrono::hours(24));
    EXPECT_EQ(column(fill(kSelectRecentLogOn, {"0", "anna"}), "DaysAgo"), Texts{});
    EXPECT_EQ(column(fill(kSelectRecentLogOn, {"1", "anna"}), "DaysAgo"), Texts{"1"});
}

TEST_F(StatementsTest, SetsDefaultsByTheClock)
{
    database.connection().Execute(fill(kInsertUser, {"eva", "p", "Eva", "E", "e@example.org"}));
    Recordset set(database.connection());
    set.Open(fill(kSelectUser, {"eva"}));
    EXPECT_TRUE(set.Fields("AccountActive").boolean());
    EXPECT_EQ(set.Fields("CreationTime").date(), clock.now());
    EXPECT_TRUE(set.Fields("IMClientInUse").is_null());
}
