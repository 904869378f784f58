#include "store/Query.h"

#include "store/Statements.h"
#include "support/MemoryStore.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace std::string_literals;
using namespace qz::store::statements;
using namespace qz::store::tables;
using qz::EngineError;
using qz::number_of;
using qz::platform::Value;
using qz::store::Literal;
using qz::store::Quoted;

namespace {

class QueryTest : public testing::Test, protected qz::test::MemoryStore {
protected:
    /// @return the number of the failure; nothing when there is none.
    static std::optional<std::int32_t> failure_of(const std::function<void()>& step)
    {
        try {
            step();
            return std::nullopt;
        } catch (const EngineError& error) {
            return error.number();
        }
    }
    /// What is stored of a value that is joined between quotes; nothing when the statement is refused.
    std::optional<std::string> stored(std::string_view value)
    {
        database.run(kDeleteAllCommands);
        const auto failure = failure_of([&] { database.run(kInsertCommand, "x", Quoted{value}); });
        const auto rows = database.query(kSelectCommands);
        EXPECT_EQ(rows.size(), failure ? 0U : 1U);
        if (failure) {
            EXPECT_EQ(failure, number_of(qz::DatabaseError::Syntax));
            return std::nullopt;
        }
        EXPECT_EQ(rows.front()["action"].text(), "x");
        return rows.front()["Parameters"].text();
    }
};

} // namespace

TEST_F(QueryTest, AQuotedTextIsOneValueOrIsRefused)
{
    const std::pair<std::string, std::optional<std::string>> cases[] = {{"", ""}, {"x", "x"}, {"''", "'"},
        {"O''Brien", "O'Brien"}, {"''''", "''"}, {"x'' , ''y", "x' , 'y"}, {"\\", "\\"},
        {"-- /* ; ?", "-- /* ; ?"}, {R"(x" OR "1"="1)", R"(x" OR "1"="1)"}, {"{}", "{}"},
        {"\xE2\x80\x99 OR 1=1", "\xE2\x80\x99 OR 1=1"}, {std::string(100, '\''), std::string(50, '\'')},
        {"'", {}}, {"'''", {}}, {"x'", {}}, {"'x", {}}, {"x' OR '1'='1", {}}, {"x' OR ''='", {}},
        {"x'; DELETE FROM users; --", {}}, {"x' --", {}}, {"x'/**/OR/**/'1'='1", {}}, {"x'||'y", {}},
        {"x\\' OR 1=1 --", {}}, {"x' , 'y", {}}, {"x'), ('y", {}}, {"'''' OR 1=1'", {}}, {"\0"s, {}},
        {"x\0y"s, {}}, {"''\0"s, {}}, {std::string(101, '\''), {}}};
    for (const auto& [value, expected] : cases) {
        EXPECT_EQ(stored(value), expected) << value;
    }
    if (qz::test::server_under_test() == nullptr) { // servers store no such long texts, and only characters
        EXPECT_EQ(stored("\xFF\xC0"), "\xFF\xC0");
        EXPECT_EQ(stored(std::string(10'000'000, '\'')), std::string(5'000'000, '\''));
    }
}

TEST_F(QueryTest, ALiteralIsOneValueOrIsRefused)
{
    add(kRooms, {{"RoomName", "lobby"}, {"UserName_Owner", "o'brien"}});
    const auto owned = [&](std::string_view owner) {
        return database.query(kSelectOwnedRoom, "lobby", Literal{owner}).size();
    };
    EXPECT_EQ(owned("'o''brien'"), 1U);
    EXPECT_EQ(owned(" 'O''Brien'\t"), 1U);
    for (const auto* other : {"''", "'x'", "5", "-3", "1.5", "9223372036854775808"}) {
        EXPECT_EQ(owned(other), 0U) << other;
    }
    for (const auto& refused : {""s, " "s, "'"s, "'''"s, "'o'brien'"s, "'a' 'b'"s, "'a"s, "a'"s, "\"a\""s,
             "1 OR 1=1"s, "1=1"s, "1;"s, "1 --"s, "1/**/"s, "(1)"s, "UserName_Owner"s, "NULL"s, "0x10"s,
             "1e5"s, "1 1"s, "- 1"s, "--1"s, "+1"s, "1-1"s, "1."s, ".5"s, "1.2.3"s, "x'41'"s, "'1'='1'"s,
             "?"s, ":a"s, "@a"s, "1,1"s, "1\0"s, "'\0'"s, "nan"s, "inf"s, std::string(50, '9')}) {
        EXPECT_EQ(failure_of([&] { owned(refused); }), number_of(qz::DatabaseError::Syntax)) << refused;
    }
}

TEST_F(QueryTest, ARefusalShowsNoValue)
{
    try {
        database.run(kInsertCommand, Quoted{"it's secret"}, "");
        FAIL();
    } catch (const EngineError& error) {
        EXPECT_EQ(error.description(), "Syntax error in the statement that begins with \"INSERT INTO \"");
        EXPECT_EQ(error.source(), qz::kProviderSource);
    }
    EXPECT_EQ(qz::store::stated_text(kInsertCommand, {"it's", "{}"}),
        "INSERT INTO [command] ([action] , [Parameters]) VALUES ('it's' , '{}')");
}

TEST_F(QueryTest, RowsHaveNamedFieldsAndKeys)
{
    const auto ann = add(kUsers, {{"UserName", "ann"}, {"Phone", "1"}});
    add(kUsers, {{"UserName", "bert"}});
    const auto rows = database.query(kSelectUsers);
    ASSERT_EQ(rows.size(), 2U);
    std::string names;
    for (const auto& row : rows) {
        names += row["USERNAME"].text() + " ";
    }
    EXPECT_EQ(names, "ann bert ");
    EXPECT_EQ(rows.front().key(), ann);
    EXPECT_EQ(rows.front()["phone"].text(), "1");
    EXPECT_EQ(failure_of([&] { rows.front()["Colour"]; }), number_of(qz::DatabaseError::NoSuchField));
    const auto none = database.query(kSelectUser, "zoe");
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(failure_of([&] { none.front(); }), number_of(qz::DatabaseError::NoCurrentRow));
    EXPECT_EQ(failure_of([&] { database.update(kUsers, ann, {{"Colour"}, {"red"}}); }).has_value(), true);
    EXPECT_EQ(column(kUsers, "Phone"), (std::vector<std::string>{"1", ""}));
}
