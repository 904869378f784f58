// The SQL statements that run, as lines of the host's log.
#pragma once

#include "HostLog.h"
#include "platform/database/StatementTrace.h"

#include <memory>
#include <mutex>

namespace velto {

class SqlTrace final : public qz::platform::StatementTrace {
public:
    explicit SqlTrace(HostLog& log) : log_(&log) { }

    void ran(const qz::platform::RanStatement& statement) noexcept override;
    /// The log may go from here on: a thread that still waits for a database server tells nothing more.
    void end();

private:
    std::mutex mutex_;
    HostLog* log_;
};

/// Ends a trace, if there is one, on every way out.
struct SqlTraceEnd {
    explicit SqlTraceEnd(std::shared_ptr<SqlTrace> ended) : trace(std::move(ended)) { }
    SqlTraceEnd(const SqlTraceEnd&) = delete;
    SqlTraceEnd& operator=(const SqlTraceEnd&) = delete;
    ~SqlTraceEnd()
    {
        if (trace) {
            trace->end();
        }
    }

    std::shared_ptr<SqlTrace> trace;
};

} // namespace velto
