// When each user was first and last active: a table beside the activity log that is brought up to date when
// somebody asks, and a little now and then, so that a line of the log costs nothing for it.
#pragma once

#include "base/Clock.h"
#include "platform/sqlite/SqliteDatabase.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace qz::platform {

class SqliteActivity {
public:
    /// @param database  with its schema; like the clock it must outlive the object.
    SqliteActivity(SqliteDatabase& database, const Clock& clock) : database_(database), clock_(clock) { }

    /// Whether the log has lines that the table does not know of.
    bool is_behind() { return next_end(1).has_value(); }
    /// Sees to all lines. In a transaction that writes.
    void catch_up();
    /// Sees to some lines, unless it has done so just now. In a transaction that writes.
    void advance();

private:
    struct Statements {
        explicit Statements(SqliteDatabase& database);

        SqliteStatement next_end;
        SqliteStatement take_up;
        SqliteStatement set_seen;
    };

    std::optional<std::int64_t> next_end(std::int64_t lines);
    void see_until(std::int64_t line);
    Statements& statements();

    SqliteDatabase& database_;
    const Clock& clock_;
    std::optional<Statements> statements_; // from the first use on
    std::chrono::steady_clock::time_point advanced_;
};

} // namespace qz::platform
