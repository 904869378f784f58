// What the message queue costs a tick when many messages wait for people who are off line.

#include "queue/QueueTable.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace {

using qz::DateTime;
using qz::queue::QueueEntry;
using qz::queue::QueueTable;

const DateTime kNow = DateTime::from_civil({2026, 3, 2, 9, 0, 0});
constexpr std::int64_t kRetrySeconds = 10;

/// So many messages for a thousand people, each of whom was tried just now.
QueueTable waiting_messages(std::int64_t count)
{
    QueueTable table;
    for (std::int64_t i = 0; i < count; ++i) {
        QueueEntry entry;
        entry.sender = "ada";
        entry.recipient = "user" + std::to_string(i % 1000);
        entry.text = "A message of ordinary length, as people write them.";
        entry.MsgID = static_cast<double>(i + 1);
        entry.received_time = kNow;
        entry.expiration_time = kNow.plus_seconds(900);
        table.put(std::move(entry));
    }
    while (const auto place = table.next_due(0)) {
        table.set_attempted(*place, kNow);
    }
    return table;
}

/// The walks of one tick in which nothing is due.
void tick_of_waiting_messages(benchmark::State& state)
{
    auto table = waiting_messages(state.range(0));
    const auto now = kNow.plus_seconds(1);
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(table.next_to_expire(now));
        benchmark::DoNotOptimize(table.next_finished(0));
        table.make_due(now, kRetrySeconds);
        benchmark::DoNotOptimize(table.next_due(0));
        benchmark::DoNotOptimize(table.next_to_resend(now, kRetrySeconds));
    }
}
BENCHMARK(tick_of_waiting_messages)->Arg(100)->Arg(10'000)->Arg(100'000);

/// One message in and out again, beside so many others.
void put_and_free(benchmark::State& state)
{
    auto table = waiting_messages(state.range(0));
    double msg_id = 1e9;
    while (state.KeepRunning()) {
        QueueEntry entry;
        entry.sender = "ada";
        entry.recipient = "ben";
        entry.MsgID = ++msg_id;
        entry.expiration_time = kNow.plus_seconds(900);
        table.free(table.put(std::move(entry)));
    }
}
BENCHMARK(put_and_free)->Arg(100)->Arg(10'000)->Arg(100'000);

} // namespace
