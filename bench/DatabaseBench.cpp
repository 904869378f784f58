// What the database costs: writing a log row, asking whether a table has changed, the costly queries.

#include "base/Clock.h"
#include "platform/sqlite/SqliteProvider.h"
#include "store/Overrides.h"
#include "store/Query.h"

#include <benchmark/benchmark.h>

#include <array>
#include <filesystem>
#include <memory>
#include <string>

#include <unistd.h>

using namespace qz::platform;
using namespace qz::store;

namespace {

/// Standing still: reading the machine's clock is not what is measured.
class StillClock final : public qz::Clock {
public:
    qz::DateTime now() const override { return now_; }
    std::chrono::steady_clock::time_point steady() const override { return {}; }

private:
    qz::DateTime now_ = qz::DateTime::from_civil({2026, 3, 2, 9, 0, 0});
};

/// A database in a folder of its own, gone with the object.
class BenchDatabase {
public:
    BenchDatabase()
    {
        std::filesystem::create_directories(folder_);
        ConnectionOptions options;
        options.database_file = folder_ / "VELTO.db";
        options.overrides = all_overrides();
        connection_ = make_sqlite_connection(options, clock_);
        connection_->Open("");
    }
    BenchDatabase(const BenchDatabase&) = delete;
    BenchDatabase& operator=(const BenchDatabase&) = delete;
    ~BenchDatabase()
    {
        connection_.reset();
        std::filesystem::remove_all(folder_);
    }
    Connection& operator*() { return *connection_; }
    Connection* operator->() { return connection_.get(); }

private:
    std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() / ("velto-bench-" + std::to_string(getpid()));
    StillClock clock_;
    std::unique_ptr<Connection> connection_;
};

template <typename... Plain> std::array<Value, sizeof...(Plain)> values(const Plain&... plain)
{
    return {Value(plain)...};
}

std::string user(std::int64_t number)
{
    return "user" + std::to_string(number);
}

void add_log_row(Connection& connection, const std::string& name, const char* action)
{
    connection.add_row(tables::kLog, {{"UserName", "RemoteIP", "Action"}, {name, "192.168.10.20", action}});
}

void add_users(Connection& connection, int count)
{
    for (int i = 0; i < count; ++i) {
        connection.run(statements::kInsertUser,
            values(user(i), "#0123456789abcdef", "First", "Last", "user@example.org"));
    }
    connection.commit();
}

/// Turns of a hundred rows on a file, of so many users in no order: each has his own place in the index.
void insert_log_rows(benchmark::State& state)
{
    BenchDatabase database;
    const auto users = static_cast<unsigned>(state.range(0));
    unsigned number = 0;
    while (state.KeepRunning()) {
        add_log_row(*database, user(number * 7919U % users), "LogOn successfully (version 1.5.61)");
        if (++number % 100 == 0) {
            database->commit();
        }
    }
    database->commit();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(insert_log_rows)->Arg(1)->Arg(100)->Arg(5'000)->UseRealTime()->Iterations(200'000);

/// The three statements that one message costs: into the table, found again, written back. Senders,
/// recipients and MsgIDs in no order.
void message_row(benchmark::State& state)
{
    BenchDatabase database;
    std::int64_t number = 0;
    while (state.KeepRunning()) {
        ++number;
        const auto from = user(number * 7919 % 5'000);
        const auto to = user(number * 104'729 % 5'000);
        const auto msg_id = number * 1'299'709 % 1'000'000'007;
        database->insert_row(
            tables::kMessages, {{"UserName_From", "UserName_To", "MsgID"}, {from, to, msg_id}});
        const Rows rows(statements::kSelectMessage,
            database->query(statements::kSelectMessage, values(from, to, msg_id)));
        database->update_row(tables::kMessages, rows.front().key(), {{"Sent", "Delivered"}, {true, true}});
        if (number % 100 == 0) {
            database->commit();
        }
    }
    database->commit();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(message_row)->UseRealTime()->Iterations(100'000);

void unchanged_mark(benchmark::State& state)
{
    BenchDatabase database;
    add_users(*database, 10'000);
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(database->change_mark(tables::kUsers));
    }
}
BENCHMARK(unchanged_mark);

/// What an unchanged mark saves.
void load_users(benchmark::State& state)
{
    BenchDatabase database;
    add_users(*database, 10'000);
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(database->query(statements::kSelectUsers, {}));
    }
}
BENCHMARK(load_users)->Unit(benchmark::kMillisecond);

/// After each change of a buddy list, with one duplicated entry among 50,000.
void find_duplicated_buddies(benchmark::State& state)
{
    BenchDatabase database;
    for (int i = 0; i < 50'000; ++i) {
        database->run(statements::kInsertBuddy, values(user(i / 20), user(i % 997), "friends"));
    }
    database->run(statements::kInsertBuddy, values("user0", "user0", "friends"));
    database->commit();
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(database->query(statements::kSelectDuplicatedBuddies, {}));
    }
}
BENCHMARK(find_duplicated_buddies)->Unit(benchmark::kMillisecond);

/// The inactivity job's query over 200,000 log rows.
void find_inactive_users(benchmark::State& state)
{
    BenchDatabase database;
    add_users(*database, 1'000);
    for (int i = 0; i < 200'000; ++i) {
        add_log_row(*database, user(i % 1'000), "x");
    }
    database->commit();
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(database->query(statements::kSelectInactiveUsers, values(23)));
    }
}
BENCHMARK(find_inactive_users)->Unit(benchmark::kMillisecond);

} // namespace
