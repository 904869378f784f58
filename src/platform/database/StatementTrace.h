// What runs on a connection, for those who look for a fault: each statement with its values, its time and its
// failure. Passwords, enciphered values and texts of messages cannot be read in a line of it.
#pragma once

#include "platform/database/Value.h"

#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qz::platform {

/// A statement that has run, or has failed.
struct RanStatement {
    std::string_view sql;               // for one row of values
    std::span<const Value> values = {}; // of the first row
    std::size_t rows = 1;               // rows of values that it ran with
    std::chrono::nanoseconds time{};
    std::string_view error = {}; // empty when it succeeded
};

class StatementTrace {
public:
    StatementTrace() = default;
    StatementTrace(const StatementTrace&) = delete;
    StatementTrace& operator=(const StatementTrace&) = delete;
    virtual ~StatementTrace() = default;
    /// Called on the thread that ran the statement, which may outlive the connection.
    virtual void ran(const RanStatement& statement) noexcept = 0;
};

/// A statement as one line: "sql 0.412 ms  SELECT * FROM users WHERE username = ?  ['ann']", then the number
/// of rows unless it is 1, then the failure. Nothing in it can end the line or steer a terminal.
///
/// Values of the columns password and key, and texts that hold an enciphered value, are shown as <hidden>; of
/// texts for users, only the length. A text whose column cannot be told is treated as that of any column
/// that its statement names. Long texts are cut.
std::string trace_line(const RanStatement& statement);

} // namespace qz::platform
