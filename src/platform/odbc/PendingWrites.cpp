#include "platform/odbc/PendingWrites.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace qz::platform {

namespace {

constexpr std::size_t kMostRows = 20'000;
/// Rows that are sent together: more would gain little.
constexpr std::size_t kMostTogether = 500;

} // namespace

bool PendingWrites::full() const
{
    return rows_ >= kMostRows;
}

void PendingWrites::add_insert(std::string table, const std::string& sql, std::vector<Value> values)
{
    place_for(std::move(table), sql).step.rows.push_back(std::move(values));
    ++rows_;
}

void PendingWrites::add_update(
    std::string table, const Step& step, std::vector<std::string> columns, std::int64_t key)
{
    updated_.emplace(table, key);
    if (!updated_joinable_.emplace(table, key).second) {
        joinable_from_ = writes_.size(); // the two updates of this row must keep their order
        updated_joinable_ = {{table, key}};
    }
    auto& write = place_for(std::move(table), step.sql);
    write.step.many = step.many;
    write.changed_columns = std::move(columns);
    write.keys.push_back(key);
    write.step.rows.push_back(step.rows.front());
    ++rows_;
}

void PendingWrites::put_back(std::vector<Write> writes)
{
    for (const auto& write : writes) {
        rows_ += write.step.rows.size();
    }
    joinable_from_ += writes.size();
    writes_.insert(
        writes_.begin(), std::make_move_iterator(writes.begin()), std::make_move_iterator(writes.end()));
}

std::vector<PendingWrites::Write> PendingWrites::take()
{
    std::vector<Write> all(std::make_move_iterator(writes_.begin()), std::make_move_iterator(writes_.end()));
    writes_.clear();
    updated_.clear();
    updated_joinable_.clear();
    joinable_from_ = 0;
    rows_ = 0;
    return all;
}

PendingWrites::Write& PendingWrites::place_for(std::string table, const std::string& sql)
{
    const auto begin = writes_.begin() + static_cast<std::ptrdiff_t>(joinable_from_);
    const auto same = std::find_if(begin, writes_.end(),
        [&](const Write& write) { return write.step.sql == sql && write.step.rows.size() < kMostTogether; });
    if (same != writes_.end()) {
        return *same;
    }
    return writes_.emplace_back(Write{std::move(table), {sql, {}, {}}, {}, {}});
}

} // namespace qz::platform
