#include "store/ActivityLog.h"

#include "store/Statements.h"
#include "support/TestStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace std::string_literals;
using namespace qz::store::tables;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Texts = std::vector<std::string>;

namespace {

class ActivityLogTest : public testing::Test {
protected:
    ActivityLogTest() { empty(); }
    void empty()
    {
        store.foreign();
        store.settings.set_LogOlderThan(1);
        store.clock.advance(std::chrono::hours(24));
        log.ClearOldLog();
    }
    Texts rows() { return store.foreign().rows(kLog, {"Action", "UserName", "RemoteIP"}); }

    qz::test::TestStore store;
    qz::store::ActivityLog log{store.database, store.settings, store.parser, store.journal};
};

std::string repeated(const std::string& text, int count)
{
    std::string result;
    while (count-- > 0) {
        result += text;
    }
    return result;
}

} // namespace

TEST_F(ActivityLogTest, FitsValuesToTheirColumns)
{
    const auto e_acute = "\xC3\xA9"s;
    const struct {
        std::string action, user, address;
        std::string row;
    } cases[] = {
        {"a", "ann", "::1", "a|ann|::1"},
        {"a", "", "", "a|VELTOServer|127.0.0.1"},
        {"a", "   ", " ", "a|VELTOServer| "},
        {"a", "\r\n", "\r\n", "a|VELTOServer|127.0.0.1"},
        {"\r\na\0b\n"s, "a\nnn", "1\r2", "ab|ann|12"},
        {"it's", "o'brien", "::1", "it's|o'brien|::1"},
        {repeated("x", 256), repeated("y", 51), repeated("z", 21),
            repeated("x", 255) + "|" + repeated("y", 50) + "|" + repeated("z", 20)},
        {repeated(e_acute, 256), repeated(e_acute, 51), repeated(e_acute, 21),
            repeated(e_acute, 255) + "|" + repeated(e_acute, 50) + "|" + repeated(e_acute, 20)},
        // Cut after the quotes were doubled, but never through a pair.
        {repeated("'", 255), repeated("'", 50), "z", repeated("'", 127) + "|" + repeated("'", 25) + "|z"},
        {repeated("x", 254) + "'", "a" + repeated("'", 30), "z",
            repeated("x", 254) + "|a" + repeated("'", 24) + "|z"},
        {repeated("x", 253) + "''", repeated("y", 48) + "'", "z",
            repeated("x", 253) + "'|" + repeated("y", 48) + "'|z"},
        {repeated("'x", 5'000'000), repeated("y", 10'000'000), repeated("z", 10'000'000),
            repeated("'x", 85) + "|" + repeated("y", 50) + "|" + repeated("z", 20)},
    };
    Texts expected;
    for (const auto& each : cases) {
        log.Write2dbLog(each.action, each.user, each.address);
        expected.push_back(each.row);
    }
    EXPECT_EQ(rows(), expected);
    EXPECT_THAT(store.failures(), IsEmpty());
}

TEST_F(ActivityLogTest, AnAddressGoesInAsItStands)
{
    log.Write2dbLog("a", "ann", "o'brien");
    ASSERT_THAT(store.journal.failures, SizeIs(1));
    EXPECT_FALSE(store.journal.failures[0].logged);
    EXPECT_TRUE(store.journal.failures[0].description.ends_with(
        " -> INSERT INTO [LOG] ( [UserName], [RemoteIP], [Action]) VALUES ( 'ann' , 'o'brien' , 'a' )"));
    EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(ActivityLogTest, ClearsRowsByTheDay)
{
    const auto& today = store.clock.now();
    const auto midnight = today.date();
    for (const int days : {400, 8, 7, 6, 0, -3}) {
        store.foreign().add(kLog,
            {{"Action", std::to_string(days)},
                {"ActionTime", midnight.plus_seconds(-86400 * days + (days == 7 ? 86399 : 0))}});
    }
    store.settings.set_LogOlderThan(0);
    log.ClearOldLog();
    EXPECT_THAT(rows(), SizeIs(6));
    store.settings.set_LogOlderThan(7);
    log.ClearOldLog();
    EXPECT_THAT(store.foreign().rows(kLog, {"Action"}), ElementsAre("6", "0", "-3"));
    store.database.ClosedbConnection();
    log.ClearOldLog();
    EXPECT_THAT(store.failures(), IsEmpty());
}

TEST_F(ActivityLogTest, ClearsSomeRowsAtATime)
{
    const auto midnight = store.clock.now().date();
    const auto add = [&](std::int64_t key, const char* action, int days) {
        store.foreign().add(
            kLog, {{"IDLog", key}, {"Action", action}, {"ActionTime", midnight.plus_seconds(-86400 * days)}});
    };
    add(10, "first", 8);
    add(2'009, "second", 7);
    add(2'010, "third", 7); // the first one's key and 2,000
    add(2'011, "young", 6);
    add(2'012, "late", 9);
    store.settings.set_LogOlderThan(0);
    EXPECT_FALSE(log.clear_some());
    EXPECT_THAT(rows(), SizeIs(5));
    store.settings.set_LogOlderThan(7);
    EXPECT_TRUE(log.clear_some());
    EXPECT_THAT(store.foreign().rows(kLog, {"Action"}), ElementsAre("third", "young", "late"));
    EXPECT_TRUE(log.clear_some());
    EXPECT_THAT(store.foreign().rows(kLog, {"Action"}), ElementsAre("young"));
    EXPECT_FALSE(log.clear_some());
    store.database.ClosedbConnection();
    EXPECT_FALSE(log.clear_some());
}

TEST_F(ActivityLogTest, ListsTheNewestFirst)
{
    EXPECT_THAT(log.get_Log_web(10), ElementsAre(""));
    log.Write2dbLog("first", "ann", "::1");
    store.clock.advance(std::chrono::seconds(-5)); // the order is that of the rows, not of the clock
    log.Write2dbLog("second", "bert", "::2");
    log.Write2dbLog("third", "carl", "::3");
    EXPECT_THAT(log.get_Log_web(2),
        ElementsAre("2026-03-03 08:59:55/carl/::3/third", "2026-03-03 08:59:55/bert/::2/second"));
    EXPECT_THAT(log.get_Log_web(99), SizeIs(3));
    EXPECT_THAT(log.get_Log_web(0), ElementsAre(""));
    EXPECT_THAT(store.failures(), IsEmpty());
    EXPECT_THAT(log.get_Log_web(-1), ElementsAre(""));
    store.database.ClosedbConnection();
    EXPECT_THAT(log.get_Log_web(10), ElementsAre(""));
    EXPECT_THAT(store.failures(), ElementsAre("get_Log_web -2147217900", "get_Log_web 3709"));
}
