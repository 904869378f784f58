// A statement of the catalogue, prepared, and what must be in the tables before it runs.
#pragma once

#include "platform/database/Shape.h"
#include "platform/sqlite/SqliteDatabase.h"
#include "platform/sqlite/SqliteWaitingRows.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace qz::platform {

struct Translation;

struct SqlitePrepared {
    /// @throws EngineError when the database does not have what the statement speaks of.
    SqlitePrepared(SqliteDatabase& database, const Shape& shape);

    void bind(const Match& match);
    /// The number that messages are looked for with, when the statement reads what is kept beside them.
    std::optional<Value> number_asked_for(const Match& match) const;

    SqliteStatement statement;
    bool hidden_key;                          // the last column is one that the text does not ask for
    bool asks_activity;                       // reads what is kept beside the log
    SqliteWaitingRows::Tables tables;         // whose waiting rows it would miss
    std::vector<std::string> waiting_columns; // of an INSERT whose rows may wait; else none

private:
    SqlitePrepared(SqliteDatabase& database, const Shape& shape, Translation translation);

    std::vector<std::size_t> holes_; // of each parameter
    std::optional<std::size_t> number_hole_;
};

} // namespace qz::platform
