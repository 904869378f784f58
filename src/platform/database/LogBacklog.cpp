#include "platform/database/LogBacklog.h"

#include "base/Guarded.h"
#include "platform/database/ColumnFinder.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

namespace qz::platform {

namespace {

constexpr std::string_view kTime = "ActionTime";
constexpr std::array<std::string_view, 3> kColumns{"UserName", "RemoteIP", "Action"};

} // namespace

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

LogRow LogBacklog::row_of(const RowChange& row, DateTime now)
{
    LogRow result{now, std::vector<Value>(kColumns.size())};
    for (std::size_t i = 0; i < row.columns.size(); ++i) {
        if (same_column_name(row.columns[i], kTime)) {
            attempt([&] { result.time = row.values[i].date(); });
        }
        for (std::size_t known = 0; known < kColumns.size(); ++known) {
            if (same_column_name(row.columns[i], kColumns.at(known))) {
                result.values[known] = row.values[i];
            }
        }
    }
    return result;
}

RowChange LogBacklog::change_of(LogRow row)
{
    RowChange change{{std::string(kTime)}, {row.time}};
    change.columns.insert(change.columns.end(), kColumns.begin(), kColumns.end());
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
