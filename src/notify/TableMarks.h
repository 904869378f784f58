// The state of the tables that the daily jobs read, so that a job can see that nothing has changed.
#pragma once

#include "base/Guarded.h"
#include "store/Database.h"
#include "store/Statements.h"

#include <cstdint>
#include <optional>

namespace qz::notify {

struct TableMarks {
    std::uint64_t users = 0;
    std::uint64_t log = 0;
    std::uint64_t last_logons = 0;
    bool operator==(const TableMarks&) const = default;

    /// Nothing when there is no connection: the job then goes on and reports what is wrong.
    static std::optional<TableMarks> of(store::Database& database)
    {
        std::optional<TableMarks> marks;
        attempt([&] {
            marks = {database.change_mark(store::tables::kUsers), database.change_mark(store::tables::kLog),
                database.change_mark(store::tables::kLastLogOn)};
        });
        return marks;
    }
};

} // namespace qz::notify
