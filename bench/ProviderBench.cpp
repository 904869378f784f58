// What a message costs in the database, from the sender's put to the recipient's confirmation: the statements
// of the queue, a turn for every so many messages. On the embedded database, and on the server that
// VELTO_BENCH_CONNECTION leads to, whose tables velto-server db init has made.

#include "base/Text.h"
#include "platform/SystemClock.h"
#include "platform/database/Recordset.h"
#include "platform/odbc/OdbcProvider.h"
#include "platform/sqlite/SqliteProvider.h"
#include "store/Statements.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>

namespace {

using namespace qz;
using namespace qz::platform;
using namespace qz::store::statements;

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
        connection_.end_turn();
    }

private:
    void log(const std::string& action)
    {
        connection_.Execute(fill(kInsertLogRow, {"ada", "192.0.2.1", action}));
    }
    void put(std::int64_t id)
    {
        connection_.query(fill(kSelectAutoReplyEnabled, {"ben"}));
        Recordset row(connection_);
        row.Open(std::string(kSelectMessagesForAdding.text));
        row.AddNew();
        row.SetField("UserName_From", "ada");
        row.SetField("UserName_To", "ben");
        row.SetField("MsgID", static_cast<double>(id));
        row.Update();
        log("New message from ada to ben with MsgID " + std::to_string(id));
    }
    void write_back(std::int64_t id)
    {
        Recordset row(connection_);
        row.Open(fill(kSelectMessage, {"ada", "ben", std::to_string(id)}));
        row.SetField("Sent", true);
        for (const auto* field : {"SentTime", "ReceivedTime", "ExpirationTime"}) {
            row.SetField(field, clock_.now());
        }
        row.Update();
    }
    void confirm(std::int64_t id)
    {
        Recordset row(connection_);
        row.Open(fill(kSelectMessagesByMsgID, {std::to_string(id)}));
        row.SetField("Delivered", true);
        row.SetField("DeliveredTime", clock_.now());
        row.Update();
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
    options.statements = store::all_statements();
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
    options.statements = store::all_statements();
    const auto connection = make_odbc_connection(options);
    connection->Open(text);
    run_messages(state, *connection);
}
BENCHMARK(messages_by_odbc)->Arg(1)->Arg(16)->Arg(64)->UseRealTime();

} // namespace
