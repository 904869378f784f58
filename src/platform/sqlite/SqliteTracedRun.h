// The runs of a prepared statement, for the trace. There is one only while somebody traces.
#pragma once

#include "platform/database/StatementTrace.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qz::platform {

class SqliteTracedRun {
public:
    /// @param trace       must outlive the object.
    /// @param parameters  of all rows.
    SqliteTracedRun(StatementTrace& trace, std::string_view sql, std::size_t rows, std::size_t parameters)
        : trace_(trace), sql_(sql), rows_(rows), values_(parameters / rows)
    {
    }
    SqliteTracedRun(const SqliteTracedRun&) = delete;
    SqliteTracedRun& operator=(const SqliteTracedRun&) = delete;
    ~SqliteTracedRun() { end({}); }

    void bind(int parameter, Value value)
    {
        const auto position = static_cast<std::size_t>(parameter - 1);
        if (position < values_.size()) { // of the first row
            values_[position] = std::move(value);
        }
    }
    /// The time of one step, which is that of the statement alone, not of what its reader does in between.
    void add(std::chrono::nanoseconds time)
    {
        time_ += time;
        stepped_ = true;
    }
    /// Tells of the run once: at its last step, or when its reader has seen enough.
    void end(std::string_view error)
    {
        if (stepped_) {
            stepped_ = false;
            trace_.ran({sql_, values_, rows_, time_, error});
        }
        time_ = {};
    }
    void forget_values() { values_.assign(values_.size(), Value()); }

private:
    StatementTrace& trace_;
    std::string sql_;
    std::size_t rows_;
    std::vector<Value> values_;
    std::chrono::nanoseconds time_{};
    bool stepped_ = false;
};

} // namespace qz::platform
