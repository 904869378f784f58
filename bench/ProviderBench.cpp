// What a message costs in the database, from the sender's put to the recipient's confirmation: the statements
// of the queue, a turn for every so many messages. On the embedded database, and on the server that
// VELTO_BENCH_CONNECTION leads to, whose tables velto-server db init has made.

#include "base/Text.h"
#include "platform/SystemClock.h"
#include "platform/odbc/OdbcProvider.h"
#include "platform/sqlite/SqliteProvider.h"
#include "store/Overrides.h"
#include "store/Query.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace qz;
using namespace qz::platform;
using namespace qz::store::statements;
using namespace qz::store::tables;

class MessagePath {
public:
    explicit MessagePath(Connection& connection) : connection_(connection) { }

    void run(int messages)
    {
        const auto first = next_;
        for (; next_ < first + messages; ++next_) {
            put(next_);
        }
        for (auto id = first; id < next_; ++id) {
            write_back(id);
        }
        for (auto id = first; id < next_; ++id) {
            confirm(id);
        }
        connection_.commit();
    }

private:
    store::Rows query(const Statement& statement, const std::vector<Value>& values)
    {
        return {statement, connection_.query(statement, values)};
    }
    void log(const std::string& action)
    {
        connection_.add_row(kLog, {{"UserName", "RemoteIP", "Action"}, {"ada", "192.0.2.1", action}});
    }
    void put(std::int64_t id)
    {
        query(kSelectAutoReplyEnabled, {"ben"});
        connection_.add_row(
            kMessages, {{"UserName_From", "UserName_To", "MsgID"}, {"ada", "ben", static_cast<double>(id)}});
        log("New message from ada to ben with MsgID " + std::to_string(id));
    }
    void write_back(std::int64_t id)
    {
        const auto rows = query(kSelectMessage, {"ada", "ben", id});
        const auto now = clock_.now();
        connection_.update_row(kMessages, rows.front().key(),
            {{"Sent", "SentTime", "ReceivedTime", "ExpirationTime"}, {true, now, now, now}});
    }
    void confirm(std::int64_t id)
    {
        const auto rows = query(kSelectMessagesByMsgID, {id});
        connection_.update_row(
            kMessages, rows.front().key(), {{"Delivered", "DeliveredTime"}, {true, clock_.now()}});
        log("Message confirmed with MsgID " + std::to_string(id) + " from ada to ben");
    }

    Connection& connection_;
    SystemClock clock_;
    std::int64_t next_ = std::int64_t{std::random_device{}()} << 20U; // not those of an earlier run
};

void run_messages(benchmark::State& state, Connection& connection)
{
    MessagePath path(connection);
    const auto messages = static_cast<int>(state.range(0));
    while (state.KeepRunning()) {
        path.run(messages);
    }
    state.SetItemsProcessed(state.iterations() * messages);
    state.SetLabel(connection.description());
}

void messages_embedded(benchmark::State& state)
{
    const SystemClock clock;
    const auto file = std::filesystem::temp_directory_path() / ("velto-bench-" + std::to_string(getpid()));
    ConnectionOptions options;
    options.overrides = store::all_overrides();
    options.database_file = file;
    {
        const auto connection = make_sqlite_connection(options, clock);
        connection->Open("");
        run_messages(state, *connection);
    }
    for (const auto* end : {"", "-wal", "-shm"}) {
        std::filesystem::remove(file.string() + end);
    }
}
BENCHMARK(messages_embedded)->Arg(1)->Arg(16)->Arg(64)->UseRealTime();

void messages_by_odbc(benchmark::State& state)
{
    const char* text = std::getenv("VELTO_BENCH_CONNECTION"); // NOLINT(concurrency-mt-unsafe): one thread
    if (text == nullptr) {
        state.SkipWithError("VELTO_BENCH_CONNECTION names no server");
        return;
    }
    ConnectionOptions options;
    options.overrides = store::all_overrides();
    const auto connection = make_odbc_connection(options);
    connection->Open(text);
    run_messages(state, *connection);
}
BENCHMARK(messages_by_odbc)->Arg(1)->Arg(16)->Arg(64)->UseRealTime();

} // namespace
