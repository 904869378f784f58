#include "platform/odbc/PendingWrites.h"

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

void PendingWrites::add(const Step& insert)
{
    if (!writes_.empty() && writes_.back().sql == insert.sql && writes_.back().rows.size() < kMostTogether) {
        writes_.back().rows.push_back(insert.rows.front());
    } else {
        writes_.push_back(insert);
    }
    ++rows_;
}

void PendingWrites::put_back(std::vector<Step> writes)
{
    for (const auto& write : writes) {
        rows_ += write.rows.size();
    }
    writes_.insert(
        writes_.begin(), std::make_move_iterator(writes.begin()), std::make_move_iterator(writes.end()));
}

std::vector<Step> PendingWrites::take()
{
    std::vector<Step> all(std::make_move_iterator(writes_.begin()), std::make_move_iterator(writes_.end()));
    writes_.clear();
    rows_ = 0;
    return all;
}

} // namespace qz::platform
