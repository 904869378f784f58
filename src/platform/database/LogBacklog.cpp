#include "platform/database/LogBacklog.h"

#include <algorithm>
#include <iterator>

namespace qz::platform {

void LogBacklog::add(LogRow row)
{
    rows_.push_back(std::move(row));
    keep_bound();
}

void LogBacklog::put_back(std::vector<LogRow> rows)
{
    rows_.insert(rows_.begin(), std::make_move_iterator(rows.begin()), std::make_move_iterator(rows.end()));
    keep_bound();
}

std::vector<LogRow> LogBacklog::take(std::size_t most)
{
    const auto end = rows_.begin() + static_cast<std::ptrdiff_t>((std::min)(most, rows_.size()));
    std::vector<LogRow> taken(std::make_move_iterator(rows_.begin()), std::make_move_iterator(end));
    rows_.erase(rows_.begin(), end);
    return taken;
}

RowChange LogBacklog::change_of(LogRow row)
{
    RowChange change{{"ActionTime", "UserName", "RemoteIP", "Action"}, {}};
    change.values.reserve(change.columns.size());
    change.values.emplace_back(row.time);
    std::move(row.values.begin(), row.values.end(), std::back_inserter(change.values));
    return change;
}

void LogBacklog::keep_bound()
{
    while (rows_.size() > kMostRows) {
        rows_.pop_front();
        ++lost_;
    }
}

} // namespace qz::platform
