#include "platform/sqlite/SqliteWaitingEdits.h"

#include <algorithm>

namespace qz::platform {

namespace {

/// @param bound  how many parameters are bound already.
void run_for(SqliteStatement& statement, int bound, std::int64_t first_key, std::int64_t last_key)
{
    statement.bind(bound + 1, Value(first_key));
    statement.bind(bound + 2, Value(last_key));
    statement.run();
}

} // namespace

bool SqliteWaitingEdits::change(
    SqliteEdits& edits, const Table& table, std::int64_t key, const RowChange& row, SqliteCells& cells)
{
    if (row.columns != columns_) {
        if (!changes_.empty()) {
            return false;
        }
        update_ = &edits.statement(EditKind::Update, table, row.columns);
        columns_ = row.columns;
    }
    const Change change{key, cells_.size()};
    for (const auto& value : row.values) {
        cells_.push_back(cells.cell(value));
    }
    changes_.push_back(change);
    if (changes_.size() > 1 && alike(changes_.end()[-2], change, cells)) { // as most are
        cells_.resize(change.first_cell);
        changes_.back().first_cell = changes_.end()[-2].first_cell;
    }
    return true;
}

void SqliteWaitingEdits::write(SqliteEdits& edits, const Table& table, SqliteCells& cells)
{
    write_changes(cells);
    if (!removed_.empty()) {
        write_removals(edits.statement(EditKind::Delete, table, {}));
    }
}

void SqliteWaitingEdits::forget()
{
    changes_.clear();
    cells_.clear();
    removed_.clear();
}

bool SqliteWaitingEdits::alike(const Change& left, const Change& right, const SqliteCells& cells) const
{
    if (left.first_cell == right.first_cell) {
        return true;
    }
    const auto cells_of = [&](const Change& change) {
        return cells_.begin() + static_cast<std::ptrdiff_t>(change.first_cell);
    };
    return std::equal(cells_of(left), cells_of(left) + static_cast<std::ptrdiff_t>(columns_.size()),
        cells_of(right), [&](const SqliteCell& a, const SqliteCell& b) { return cells.same(a, b); });
}

void SqliteWaitingEdits::write_changes(SqliteCells& cells)
{
    std::stable_sort(changes_.begin(), changes_.end(),
        [](const Change& left, const Change& right) { return left.key < right.key; });
    for (std::size_t i = 0; i < changes_.size(); ++i) {
        const auto& first = changes_[i];
        auto last = first.key;
        for (; i + 1 < changes_.size() && changes_[i + 1].key <= last + 1; ++i) {
            if (!alike(first, changes_[i + 1], cells)) {
                break;
            }
            last = changes_[i + 1].key;
        }
        int parameter = 0;
        for (std::size_t column = 0; column < columns_.size(); ++column) {
            cells.bind(*update_, ++parameter, cells_[first.first_cell + column]);
        }
        run_for(*update_, parameter, first.key, last);
    }
}

void SqliteWaitingEdits::write_removals(SqliteStatement& removal)
{
    std::sort(removed_.begin(), removed_.end());
    for (std::size_t i = 0; i < removed_.size(); ++i) {
        const auto first = removed_[i];
        for (; i + 1 < removed_.size() && removed_[i + 1] <= removed_[i] + 1; ++i) { }
        run_for(removal, 0, first, removed_[i]);
    }
}

} // namespace qz::platform
