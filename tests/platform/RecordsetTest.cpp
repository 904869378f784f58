#include "platform/database/Recordset.h"

#include "base/EngineError.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qz::platform;
using qz::DatabaseError;
using qz::EngineError;

namespace {

constexpr Table kThings{"things", "IDThing"};

/// Answers every query with the same rows and writes down what is asked of it.
class RecordingConnection final : public Connection {
public:
    void Open(const std::string& /*connection_string*/) override { state = ConnectionState::Open; }
    void Close() override { state = ConnectionState::Closed; }
    ConnectionState State() const override { return state; }
    void Execute(const std::string& sql) override { calls.push_back("execute " + sql); }
    ResultSet query(const std::string& sql) override
    {
        calls.push_back("query " + sql);
        return rows;
    }
    ResultSet describe(const std::string& sql) override
    {
        calls.push_back("describe " + sql);
        return {rows.columns, {}, rows.table, {}};
    }
    std::int64_t insert_row(const Table& table, const RowChange& row) override
    {
        calls.push_back("insert " + std::string(table.name) + written(row));
        refuse();
        return 99;
    }
    void update_row(const Table& /*table*/, std::int64_t key, const RowChange& row) override
    {
        calls.push_back("update " + std::to_string(key) + written(row));
        refuse();
    }
    void delete_row(const Table& /*table*/, std::int64_t key) override
    {
        calls.push_back("delete " + std::to_string(key));
        refuse();
    }
    void end_turn() override { }
    void abandon_turn() override { }
    std::uint64_t change_mark(const Table& /*table*/) override { return 0; }
    std::string description() const override { return {}; }

    std::vector<std::string> taken_calls() { return std::exchange(calls, {}); }

    ConnectionState state = ConnectionState::Open;
    ResultSet rows{{"IDThing", "Name", "Size"}, {{1, "one", 10}, {2, "two", Value{}}, {3, "three", 30}},
        &kThings, {1, 2, 3}};
    bool refusing = false;

private:
    static std::string written(const RowChange& row)
    {
        std::string text;
        for (std::size_t i = 0; i < row.columns.size(); ++i) {
            text += " " + row.columns[i] + "=" + row.values[i].text();
        }
        return text;
    }
    void refuse() const
    {
        if (refusing) {
            throw qz::database_error(DatabaseError::Constraint, "refused");
        }
    }
    std::vector<std::string> calls;
};

template <typename Action>
std::int32_t error_of(Action action, const std::string& source = qz::kRecordsetSource)
{
    try {
        action();
    } catch (const EngineError& error) {
        EXPECT_EQ(error.source(), source);
        return error.number();
    }
    return 0;
}

class RecordsetTest : public testing::Test {
protected:
    using Calls = std::vector<std::string>;

    std::vector<std::string> names()
    {
        std::vector<std::string> result;
        for (set.MoveFirst(); !set.AtEnd(); set.MoveNext()) {
            result.push_back(set.Fields("Name").text());
        }
        return result;
    }

    RecordingConnection connection;
    Recordset set{connection};
};

} // namespace

TEST_F(RecordsetTest, FetchesAtTheFirstUseAndOnlyOnce)
{
    set.Open("q");
    EXPECT_EQ(connection.taken_calls(), Calls{});
    EXPECT_FALSE(set.AtEnd());
    EXPECT_EQ(set.RecordCount(), 3);
    EXPECT_EQ(set.Fields("nAME").text(), "one");
    EXPECT_EQ(names(), (Calls{"one", "two", "three"}));
    EXPECT_EQ(connection.taken_calls(), Calls{"query q"});
    set.Open("r");
    EXPECT_EQ(set.RecordCount(), 3);
    EXPECT_EQ(connection.taken_calls(), Calls{"query r"});
}

TEST_F(RecordsetTest, AddsWithoutFetching)
{
    set.Open("q");
    set.AddNew();
    set.SetField("name", "four");
    set.SetField("Size", 40);
    set.SetField("NAME", "fourth");
    EXPECT_EQ(set.Fields("Name").text(), "fourth");
    set.Update();
    set.Update();
    EXPECT_EQ(connection.taken_calls(), (Calls{"describe q", "insert things Name=fourth Size=40"}));
}

TEST_F(RecordsetTest, ShowsTheAddedRowWithItsKey)
{
    set.Open("q");
    EXPECT_EQ(set.RecordCount(), 3);
    set.AddNew();
    set.SetField("Name", "four");
    set.Update();
    EXPECT_EQ(set.Fields("IDThing").integer(), 99);
    EXPECT_EQ(set.RecordCount(), 4);
    EXPECT_EQ(names(), (Calls{"one", "two", "three", "four"}));
}

TEST_F(RecordsetTest, ChangesTheCurrentRowByItsKey)
{
    set.Open("q");
    set.MoveNext();
    set.SetField("Size", 22);
    set.MoveNext(); // writes what is pending
    set.SetField("Size", 33);
    set.Update();
    EXPECT_EQ(connection.taken_calls(), (Calls{"query q", "update 2 Size=22", "update 3 Size=33"}));
    set.MoveFirst();
    set.MoveNext();
    EXPECT_EQ(set.Fields("Size").integer(), 22);
}

TEST_F(RecordsetTest, GivesUpAChangeThatIsRefused)
{
    set.Open("q");
    connection.refusing = true;
    set.SetField("Name", "other");
    EXPECT_EQ(error_of([&] { set.Update(); }, qz::kProviderSource), number_of(DatabaseError::Constraint));
    EXPECT_EQ(set.Fields("Name").text(), "one");
    EXPECT_EQ(names(), (Calls{"one", "two", "three"}));
}

TEST_F(RecordsetTest, StaysOnADeletedRowUntilTheNextMove)
{
    set.Open("q");
    set.MoveNext();
    set.Delete();
    set.Update();
    EXPECT_EQ(set.RecordCount(), 2);
    EXPECT_FALSE(set.AtEnd());
    EXPECT_EQ(error_of([&] { set.Fields("Name"); }), 3021);
    EXPECT_EQ(error_of([&] { set.Delete(); }), 3021);
    set.MoveNext();
    EXPECT_EQ(set.Fields("Name").text(), "three");
    set.Delete();
    set.MoveNext();
    EXPECT_TRUE(set.AtEnd());
    EXPECT_EQ(names(), Calls{"one"});
    EXPECT_EQ(connection.taken_calls(), (Calls{"query q", "delete 2", "delete 3"}));
}

TEST_F(RecordsetTest, NamesWhatCannotBeDone)
{
    EXPECT_EQ(error_of([&] { set.RecordCount(); }), 3704);
    EXPECT_EQ(error_of([&] { set.AddNew(); }), 3704);
    set.Open("q");
    EXPECT_EQ(error_of([&] { set.Fields("Colour"); }), 3265);
    EXPECT_EQ(error_of([&] { set.SetField("Colour", "red"); }), 3265);
    while (!set.AtEnd()) {
        set.MoveNext();
    }
    EXPECT_EQ(error_of([&] { set.Fields("Name"); }), 3021);
    EXPECT_EQ(error_of([&] { set.SetField("Name", "x"); }), 3021);
    EXPECT_EQ(error_of([&] { set.MoveNext(); }), 3021);

    connection.rows = ResultSet{};
    connection.rows.columns = {"Total"};
    connection.rows.rows.emplace_back(1, Value(7));
    set.Open("count");
    EXPECT_EQ(set.Fields("total").integer(), 7);
    EXPECT_EQ(error_of([&] { set.SetField("Total", 8); }), 3251);
    EXPECT_EQ(error_of([&] { set.AddNew(); }), 3251);
    EXPECT_EQ(error_of([&] { set.Delete(); }), 3251);

    connection.rows.rows.clear();
    set.Open("count");
    EXPECT_TRUE(set.AtEnd());
    EXPECT_EQ(error_of([&] { set.MoveFirst(); }), 3021);

    set.Open("q");
    connection.Close();
    EXPECT_EQ(error_of([&] { set.RecordCount(); }), 3709);
    EXPECT_EQ(error_of([&] { set.Open("q"); }), 3709);
}
