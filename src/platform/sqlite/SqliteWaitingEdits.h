// Changes and removals of a table's stored rows, which wait in memory until the end of the turn: neighbours
// that change alike, or go, are then written by one statement.
#pragma once

#include "platform/database/Connection.h"
#include "platform/sqlite/SqliteCells.h"
#include "platform/sqlite/SqliteEdits.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qz::platform {

/// Who adds an edit knows that its row is there.
class SqliteWaitingEdits {
public:
    bool empty() const { return changes_.empty() && removed_.empty(); }
    /// Number of cells and keys that are held.
    std::size_t size() const { return cells_.size() + changes_.size() + removed_.size(); }

    /// A later change of the same row replaces an earlier one.
    /// @return false when it cannot wait, because the changes that wait are of other columns.
    /// @throws EngineError when the table has no such column.
    bool change(
        SqliteEdits& edits, const Table& table, std::int64_t key, const RowChange& row, SqliteCells& cells);
    void remove(std::int64_t key) { removed_.push_back(key); }

    /// Writes what waits, changes first, without forgetting it.
    /// @param cells  those that the changes were made with.
    void write(SqliteEdits& edits, const Table& table, SqliteCells& cells);
    void forget();

private:
    struct Change {
        std::int64_t key;
        std::size_t first_cell;
    };

    bool alike(const Change& left, const Change& right, const SqliteCells& cells) const;
    void write_changes(SqliteCells& cells);
    void write_removals(SqliteStatement& removal);

    std::vector<std::string> columns_;  // that all changes set
    SqliteStatement* update_ = nullptr; // sets them
    std::vector<Change> changes_;
    std::vector<SqliteCell> cells_;
    std::vector<std::int64_t> removed_;
};

} // namespace qz::platform
