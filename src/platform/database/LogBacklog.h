// Rows of the log that the database did not take: they wait until it takes them.
#pragma once

#include "base/DateTime.h"
#include "platform/database/Connection.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

namespace qz::platform {

inline constexpr Table kLogTable{"log", "IDLog"};

struct LogRow {
    DateTime time;             // of the event, not of the insert
    std::vector<Value> values; // user name, address, action
};

/// Bounded: when it is full, the oldest row goes for each new one.
class LogBacklog {
public:
    static constexpr std::size_t kMostRows = 20'000;

    bool empty() const { return rows_.empty(); }
    /// A row that is newer than all others.
    void add(LogRow row);
    /// Rows that are older than all others, in their order.
    void put_back(std::vector<LogRow> rows);
    /// Takes the oldest rows out.
    std::vector<LogRow> take(std::size_t most);
    /// Number of rows that went because it was full, since the last call.
    std::int64_t take_lost() { return std::exchange(lost_, 0); }

    /// A row that is to be added to the table.
    /// @param now  its time, unless the row has one of its own.
    static LogRow row_of(const RowChange& row, DateTime now);
    /// The row with its time, which the database gives other rows itself.
    static RowChange change_of(LogRow row);

private:
    void keep_bound();

    std::deque<LogRow> rows_;
    std::int64_t lost_ = 0;
};

} // namespace qz::platform
