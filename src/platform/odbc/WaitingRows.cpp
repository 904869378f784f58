#include "platform/odbc/WaitingRows.h"

#include "base/Text.h"

#include <algorithm>
#include <utility>

namespace qz::platform {

namespace {

constexpr std::size_t kMostRows = 20'000;

EngineError row_gone()
{
    return database_error(DatabaseError::RowGone,
        "Row cannot be located for updating. Some values may have been changed since it was last read.");
}

void merge(RowChange& row, RowChange change)
{
    for (std::size_t i = 0; i < change.columns.size(); ++i) {
        const auto known = std::find(row.columns.begin(), row.columns.end(), change.columns[i]);
        if (known != row.columns.end()) {
            row.values[static_cast<std::size_t>(known - row.columns.begin())] = std::move(change.values[i]);
        } else {
            row.columns.push_back(std::move(change.columns[i]));
            row.values.push_back(std::move(change.values[i]));
        }
    }
}

/// Rows with values for the same columns go together.
using Together = std::map<std::vector<std::string>, std::vector<std::vector<Value>>>;

void append_inserts(std::vector<Step>& steps, const OdbcTables& tables, const Table& table, Together& rows)
{
    for (auto& [columns, values] : rows) {
        auto step = tables.insert(table, {columns, values.front()});
        step.rows = std::move(values);
        steps.push_back(std::move(step));
    }
}

} // namespace

bool WaitingRows::full() const
{
    return rows_ >= kMostRows;
}

WaitingRows::Waiting& WaitingRows::waiting_in(const Table& table)
{
    ++rows_;
    const auto known = tables_.find(table.name);
    auto& waiting = known == tables_.end() ? tables_[lower(table.name)] : known->second;
    waiting.table = &table;
    return waiting;
}

void WaitingRows::add(const Table& table, std::int64_t key, RowChange row)
{
    waiting_in(table).added.insert_or_assign(key, std::move(row));
}

void WaitingRows::add(const Table& table, RowChange row)
{
    waiting_in(table).added_without_key.push_back(std::move(row));
}

void WaitingRows::change(const Table& table, std::int64_t key, RowChange row)
{
    auto& waiting = waiting_in(table);
    if (waiting.removed.contains(key)) {
        throw row_gone();
    }
    if (const auto added = waiting.added.find(key); added != waiting.added.end()) {
        merge(added->second, std::move(row));
        return;
    }
    merge(waiting.changed[key], std::move(row));
}

void WaitingRows::remove(const Table& table, std::int64_t key)
{
    auto& waiting = waiting_in(table);
    if (waiting.added.erase(key) != 0) {
        return;
    }
    if (!waiting.removed.insert(key).second) {
        throw row_gone();
    }
    waiting.changed.erase(key);
}

bool WaitingRows::concerns(const Table& table, bool finds_by_fixed_columns) const
{
    const auto found = tables_.find(table.name);
    if (found == tables_.end()) {
        return false;
    }
    const auto& waiting = found->second;
    return !waiting.added.empty() || !waiting.added_without_key.empty() || !waiting.removed.empty()
        || (!finds_by_fixed_columns && !waiting.changed.empty());
}

bool WaitingRows::shows_in(const ResultSet& result, const Table& table) const
{
    const auto found = tables_.find(table.name);
    const auto key = std::find_if(result.columns.begin(), result.columns.end(),
        [&](const std::string& column) { return equal_ignoring_case(column, table.key); });
    if (found == tables_.end() || key == result.columns.end()) {
        return false;
    }
    const auto position = static_cast<std::size_t>(key - result.columns.begin());
    return std::any_of(result.rows.begin(), result.rows.end(), [&](const std::vector<Value>& row) {
        return found->second.changed.contains(static_cast<std::int64_t>(row[position].number()));
    });
}

std::vector<Step> WaitingRows::steps(const OdbcTables& tables) const
{
    std::vector<Step> steps;
    for (const auto& [name, waiting] : tables_) {
        const auto& table = *waiting.table;
        if (!waiting.removed.empty()) {
            steps.push_back(tables.remove(table, waiting.removed));
        }
        Together changed;
        for (const auto& [key, row] : waiting.changed) {
            auto& values = changed[row.columns].emplace_back(row.values);
            values.emplace_back(key); // stands behind the others: see OdbcTables::update
        }
        for (auto& [columns, rows] : changed) {
            auto step = tables.update(table, 0, {columns, rows.front()});
            step.rows = std::move(rows);
            steps.push_back(std::move(step));
        }
        Together added;
        for (const auto& [key, row] : waiting.added) {
            added[row.columns].push_back(row.values);
        }
        append_inserts(steps, tables, table, added);
        Together without_key;
        for (const auto& row : waiting.added_without_key) {
            without_key[row.columns].push_back(row.values);
        }
        append_inserts(steps, tables, table, without_key);
    }
    return steps;
}

} // namespace qz::platform
