#include "platform/odbc/PendingWrites.h"

#include <utility>

namespace qz::platform {

namespace {

constexpr std::size_t kMostRows = 20'000;

} // namespace

bool PendingWrites::full() const
{
    return rows_ >= kMostRows;
}

void PendingWrites::add(const Step& insert, DateTime time)
{
    if (writes_.empty() || writes_.back().step.sql != insert.sql
        || writes_.back().step.rows.size() >= kMostLogRowsTogether) {
        writes_.push_back({insert, {time}});
    } else {
        writes_.back().step.rows.push_back(insert.rows.front());
        writes_.back().times.push_back(time);
    }
    ++rows_;
}

std::vector<LogWrite> PendingWrites::take()
{
    rows_ = 0;
    return std::exchange(writes_, {});
}

std::vector<LogRow> LogWrite::rows() &&
{
    std::vector<LogRow> rows;
    rows.reserve(step.rows.size());
    for (std::size_t i = 0; i < step.rows.size(); ++i) {
        auto& values = step.rows[i];
        if (times.empty()) {
            const auto time = values.front().date();
            values.erase(values.begin());
            rows.push_back({time, std::move(values)});
        } else {
            rows.push_back({times[i], std::move(values)});
        }
    }
    return rows;
}

} // namespace qz::platform
