#include "platform/database/Shape.h"

#include "base/EngineError.h"
#include "platform/database/Dialect.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using qz::EngineError;
using qz::platform::Catalogue;
using qz::platform::kSqliteDialect;
using qz::platform::Statement;
using qz::platform::Table;
using qz::platform::translate;
using qz::platform::Value;
using qz::platform::value_of;

namespace {

constexpr Table kThings{"things", "IDThing"};

const Statement kStatements[] = {
    {"SELECT * FROM things WHERE Name = '{}' AND Size = {}", &kThings},
    {"SELECT a FROM things WHERE kind = 1 AND Name = '{}'", &kThings},
    {"SELECT a FROM things WHERE kind = 2 AND Name = '{}'", &kThings},
    {"SELECT a FROM things WHERE kind = 'd' AND Name = '{}'", &kThings},
    {"SELECT TOP {} a FROM things;"},
};

/// Position of the shape that a text has, -1 when it is refused.
int shape_of(const std::string& sql)
{
    static const Catalogue catalogue{kStatements};
    try {
        return static_cast<int>(catalogue.look_up(sql).shape->number);
    } catch (const EngineError& error) {
        EXPECT_EQ(error.number(), number_of(qz::DatabaseError::Syntax));
        return -1;
    }
}

} // namespace

TEST(Shape, IsFoundUnderEverySpelling)
{
    const std::pair<const char*, int> cases[] = {
        {"SELECT * FROM things WHERE Name = 'x' AND Size = 5", 0},
        {"select * from [Things] where [name]='x' and size=5", 0},
        {"SELECT * FROM things WHERE Name = 'x' AND Size = 'five'", 0},
        {"SELECT * FROM things WHERE Name = 'x' AND Size = -5", 0},
        {"SELECT * FROM things WHERE Name = 5 AND Size = 5", -1},
        {"SELECT * FROM things WHERE Name = 'x' AND Size = Size", -1},
        {"SELECT a FROM things WHERE kind = 1 AND Name = '2'", 1},
        {"SELECT a FROM things WHERE kind = 2 AND Name = '1'", 2},
        {"SELECT a FROM things WHERE kind = 'd' AND Name = '1'", 3},
        {"SELECT a FROM things WHERE kind = 'D' AND Name = '1'", -1},
        {"SELECT a FROM things WHERE kind = '1' AND Name = '1'", -1},
        {"SELECT a FROM things WHERE kind = 3 AND Name = '1'", -1},
        {"SELECT TOP 5 a FROM things;", 4},
        {"SELECT TOP 5 a FROM things", -1},
        {"SELECT TOP 5.5 a FROM things;", -1},
        {"SELECT TOP '5' a FROM things;", -1},
        {"SELECT TOP -1 a FROM things;", -1},
        {"SELECT TOP 99999999999999999999 a FROM things;", -1},
        {"", -1},
    };
    for (const auto& [sql, number] : cases) {
        EXPECT_EQ(shape_of(sql), number) << sql;
    }
}

TEST(Shape, GivesTheValuesOfItsHolesInOrder)
{
    const Catalogue catalogue{kStatements};
    const std::pair<const char*, std::vector<Value>> cases[] = {
        {"SELECT * FROM things WHERE Name = 'O''Brien' AND Size = 9007199254740991",
            {"O'Brien", std::int64_t{9007199254740991}}},
        {"SELECT * FROM things WHERE Name = '' AND Size = '''x'''", {"", "'x'"}},
        {"SELECT * FROM things WHERE Name = '5' AND Size = -0.5", {"5", -0.5}},
        {"SELECT * FROM things WHERE Name = '5' AND Size = 1000000000000000000000", {"5", 1e21}},
        {"SELECT a FROM things WHERE kind = 'd' AND Name = 'd'", {"d"}},
    };
    for (const auto& [sql, values] : cases) {
        const auto match = catalogue.look_up(sql);
        std::vector<Value> found;
        for (const auto& literal : match.holes()) {
            found.push_back(value_of(literal));
        }
        EXPECT_EQ(found, values) << sql;
    }
}

TEST(Shape, ReportsARefusedTextByItsFirstWordsOnly)
{
    const Catalogue catalogue{kStatements};
    try {
        catalogue.look_up("SELECT Password FROM things WHERE Name = 'x' OR Password = 'secret'");
        FAIL();
    } catch (const EngineError& error) {
        EXPECT_EQ(error.source(), qz::kProviderSource);
        EXPECT_EQ(error.description(),
            "Syntax error in the statement that begins with \"SELECT Password FROM things WH\"");
    }
}

TEST(Dialect, TranslatesForTheEmbeddedDatabase)
{
    struct Case {
        Statement statement;
        const char* sql;
        std::vector<std::size_t> holes;
        bool hidden_key;
    };
    const Case cases[] = {
        {{"SELECT [Key] FROM things WHERE a = '{}'", &kThings},
            "SELECT [Key] , IDThing FROM things WHERE a = ?", {0}, true},
        {{"SELECT a, idthing FROM things", &kThings}, "SELECT a , idthing FROM things", {}, false},
        {{"SELECT * FROM things", &kThings}, "SELECT * FROM things", {}, false},
        {{"SELECT Left (a, Len('{}')) FROM t"}, "SELECT \"Left\" (a, Len ( ? )) FROM t", {0}, false},
        {{"UPDATE t SET t.[key] = '{}', t.b = '{}' WHERE t.c = '{}'"},
            "UPDATE t SET [key] = ? , b = ? WHERE t.c = ?", {0, 1, 2}, false},
        {{"SELECT TOP {} (a + '/' + CAST(b AS char(20))) FROM t WHERE c = {} ORDER BY d;"},
            "SELECT ( a || '/' || CAST ( b AS char ( 20 ) ) ) AS MyLog FROM t WHERE c = ? ORDER BY d LIMIT ?",
            {1, 0}, false},
        {{"SELECT TOP 100 PERCENT Max(a) FROM t"}, "SELECT Max ( a ) FROM t", {}, false},
        {{"SELECT Distinct TOP 1 a FROM t"}, "SELECT Distinct a FROM t LIMIT 1", {}, false},
        {{"SELECT Last(a) FROM t WHERE DateDiff('d',Format(b,'dd/mm/yyyy'),Date()) >= {}"},
            "SELECT MAX(a) FROM t WHERE DateDiff ( 'd' , FormatDate(b, 'dd/mm/yyyy') , Today() ) >= "
            "?",
            {0}, false},
        {{"DELETE FROM [t] WHERE a = {}", &kThings}, "DELETE FROM [t] WHERE a = ?", {0}, false},
        {{"SELECT slow FROM t WHERE a = '{}'", nullptr, "SELECT fast FROM t WHERE a = '{}'"},
            "SELECT fast FROM t WHERE a = ?", {0}, false},
    };
    for (const auto& expected : cases) {
        const auto result = translate(expected.statement, kSqliteDialect);
        EXPECT_EQ(result.sql, expected.sql);
        EXPECT_EQ(result.holes, expected.holes) << result.sql;
        EXPECT_EQ(result.hidden_key, expected.hidden_key) << result.sql;
    }
}
