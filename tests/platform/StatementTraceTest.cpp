// What a line of a trace shows of a statement, and what it does not.
#include "platform/database/StatementTrace.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

using namespace qz;
using namespace qz::platform;
using Values = std::vector<Value>;

namespace {

/// What stands behind the statement's text.
std::string values_of(std::string_view sql, const Values& values, std::string_view error = {})
{
    return trace_line({.sql = sql, .values = values, .error = error})
        .substr(std::string("sql 0.000 ms  ").size() + sql.size() + 2);
}

} // namespace

TEST(StatementTrace, ShowsValuesOnOneLine)
{
    const auto date = DateTime::from_civil({2026, 3, 4, 5, 6, 7});
    EXPECT_EQ(trace_line({.sql = "SELECT * FROM users WHERE username = ?",
                  .values = Values{"O'Brien"},
                  .rows = 64,
                  .time = std::chrono::microseconds(412),
                  .error = "no such table"}),
        "sql 0.412 ms  SELECT * FROM users WHERE username = ?  ['O''Brien']  64 rows  failed: no such table");
    EXPECT_EQ(trace_line({.sql = "COMMIT"}), "sql 0.000 ms  COMMIT");
    EXPECT_EQ(values_of("INSERT INTO t (a, b, c, d, e) VALUES (?, ?, ?, ?, ?)", {Value(), 5, 0.5, date, ""}),
        "[NULL, 5, 0.5, '2026-03-04 05:06:07', '']");
    EXPECT_EQ(
        values_of("DELETE FROM t WHERE a = ?", {"one\ntwo\x1b[31m\xff"}), R"(['one\ntwo\x1b[31m\xff'])");
    EXPECT_EQ(values_of("DELETE FROM t WHERE a = ?", {std::string(61, 'x')}),
        "['" + std::string(60, 'x') + "...' <61 characters>]");
    EXPECT_EQ(
        values_of("DELETE FROM t WHERE a = ?", {std::string(60, 'x')}), "['" + std::string(60, 'x') + "']");
}

TEST(StatementTrace, HidesSecrets)
{
    const auto* const hidden = "[1, <hidden>]";
    // A column is told by its place in a list or by a comparison, in each database's way of writing names.
    EXPECT_EQ(values_of("INSERT INTO users (id, password) VALUES (?, ?)", {1, "x"}), hidden);
    EXPECT_EQ(
        values_of("SET x; INSERT INTO [users] ([ID], [Password]) VALUES (?, lower(?)); SET y", {1, "x"}),
        hidden);
    EXPECT_EQ(values_of("UPDATE \"buddies\" SET \"id\" = ?, \"key\" = ?", {1, "x"}), hidden);
    EXPECT_EQ(values_of("SELECT 1 FROM users u WHERE u.id = ? AND u.`password`<>?", {1, "x"}), hidden);
    EXPECT_EQ(values_of("SELECT 1 FROM users WHERE substring(password, 1, ?) = ?", {1, "x"}), hidden);
    EXPECT_EQ(
        values_of("UPDATE users SET password = ? WHERE username = ?", {"x", "ann"}), "[<hidden>, 'ann']");
    EXPECT_EQ(values_of("SELECT 1 FROM t WHERE a = ? AND b = ?", {1, "is {v1}0a1b"}), hidden);
    EXPECT_EQ(values_of("INSERT INTO queue (sender, message) VALUES (?, ?)", {"ann", "Gr\xC3\xBC\xC3\x9F"}),
        "['ann', <4 characters>]");
    EXPECT_EQ(values_of("SELECT '?''', password FROM users WHERE username = ?", {"ann"}), "['ann']");
    EXPECT_EQ(values_of("INSERT INTO queue (id, message) SELECT ?, ?", {1, "noon"}), "[1, <4 characters>]");
    // Databases quote what they refuse, and show whole rows.
    EXPECT_EQ(values_of("INSERT INTO queue (id, message) VALUES (?, ?)", {1, "It's noon"},
                  "value 'It's noon' is wrong\nDETAIL: (1, It's noon)"),
        "[1, <9 characters>]  failed: value <hidden> is wrong");
    EXPECT_EQ(values_of("DELETE FROM t WHERE a = ?", {1}, "near 'x':\nmore"), "[1]  failed: near 'x':");
}
