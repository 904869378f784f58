// A prepared statement of the engine, and what must be in the tables before it runs.
#pragma once

#include "platform/database/Statement.h"
#include "platform/sqlite/SqliteDatabase.h"
#include "platform/sqlite/SqliteWaitingRows.h"

#include <cstddef>

namespace qz::platform {

struct SqlitePrepared {
    /// @throws EngineError when the database lacks a table or column that the statement names.
    SqlitePrepared(SqliteDatabase& database, const StatementOverride& text);

    SqliteStatement statement;
    SqliteWaitingRows::Tables tables; // whose pending rows must be written before it runs
    std::size_t message_number;       // of StatementOverride
    bool reads_activity;
};

} // namespace qz::platform
