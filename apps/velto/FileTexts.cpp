#include "FileTexts.h"

#include "Clean.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace velto {

namespace {

using qz::client::transfer::View;

double seconds(std::chrono::steady_clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}

std::string time_text(double time)
{
    constexpr double kMinute = 60;
    constexpr double kHour = 3600;
    if (time >= kHour) {
        return std::to_string(static_cast<int>(time / kHour)) + " h "
            + std::to_string(static_cast<int>(time / kMinute) % 60) + " min";
    }
    return time >= kMinute ? std::to_string(static_cast<int>(time / kMinute)) + " min"
                           : std::to_string(std::lround(time)) + " s";
}

} // namespace

std::string size_text(std::uint64_t bytes)
{
    static constexpr std::array<const char*, 6> kUnits{"bytes", "kB", "MB", "GB", "TB", "PB"};
    constexpr double kStep = 1000;
    auto number = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (number >= kStep && unit + 1 < kUnits.size()) {
        number /= kStep;
        ++unit;
    }
    std::array<char, 32> text{};
    std::snprintf(
        text.data(), text.size(), unit == 0 || number >= 100 ? "%.0f %s" : "%.1f %s", number, kUnits[unit]);
    return text.data();
}

std::string file_text(const View& transfer)
{
    return clean(transfer.name);
}

std::string ending_text(const qz::client::transfer::Ending& ending)
{
    const auto detail = clean(ending.detail);
    return describe(ending) + (detail.empty() ? "" : " " + detail);
}

std::string Progress::text(const View& transfer, TimePoint now)
{
    if (!measured_ && transfer.done > 0) { // what was there before is no merit of this connection
        began_ = now;
        at_first_ = transfer.done;
        measured_ = true;
    }
    const auto percent = transfer.size == 0 ? 100 : transfer.done * 100 / transfer.size;
    auto text = std::to_string(percent) + "% of " + size_text(transfer.size);
    if (!transfer.is_connected) {
        return text + ", the connection broke: trying again";
    }
    const auto time = seconds(now - began_);
    if (time < 1 || transfer.done <= at_first_) {
        return text;
    }
    const auto speed = static_cast<double>(transfer.done - at_first_) / time;
    return text + ", " + size_text(static_cast<std::uint64_t>(speed)) + "/s, "
        + time_text(static_cast<double>(transfer.size - transfer.done) / speed) + " left";
}

std::string Progress::summary(const View& transfer, TimePoint now) const
{
    return size_text(transfer.size) + " in " + time_text(seconds(now - began_));
}

} // namespace velto
