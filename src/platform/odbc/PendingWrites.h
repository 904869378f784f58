// New rows of the log that wait for the end of their turn, so that many go to the server together.
#pragma once

#include "platform/database/LogBacklog.h"
#include "platform/odbc/OdbcSession.h"

#include <cstddef>
#include <vector>

namespace qz::platform {

/// Rows that are sent together: more would gain little.
inline constexpr std::size_t kMostLogRowsTogether = 500;

/// Rows of the log on their way to the server.
struct LogWrite {
    Step step;
    /// Of the events, one for each row of the step; none when the rows bring their times along.
    std::vector<DateTime> times = {};

    /// The rows as they wait until they can be written.
    std::vector<LogRow> rows() &&;
};

class PendingWrites {
public:
    bool empty() const { return writes_.empty(); }
    /// No more rows should wait: they take memory.
    bool full() const;
    /// @param insert  of one row, which gets its time from the server.
    void add(const Step& insert, DateTime time);
    std::vector<LogWrite> take();

private:
    std::vector<LogWrite> writes_;
    std::size_t rows_ = 0;
};

} // namespace qz::platform
