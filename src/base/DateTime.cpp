#include "base/DateTime.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace qz {

namespace {

using std::chrono::sys_days;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr sys_days kOleEpoch = std::chrono::year{1899} / std::chrono::December / 30;

std::int64_t floor_days(std::int64_t seconds)
{
    const auto days = seconds / kSecondsPerDay;
    return seconds % kSecondsPerDay < 0 ? days - 1 : days;
}

/// Takes the number that fills exactly `width` digits off the front of the text.
std::optional<int> take_number(std::string_view& text, std::size_t width)
{
    int value = 0;
    if (text.size() < width) {
        return std::nullopt;
    }
    const auto* end = text.data() + width;
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc{} || result.ptr != end || value < 0) {
        return std::nullopt;
    }
    text.remove_prefix(width);
    return value;
}

bool take(std::string_view& text, std::string_view any_of)
{
    if (text.empty() || any_of.find(text.front()) == std::string_view::npos) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

bool is_valid(const CivilTime& t)
{
    const auto ymd = std::chrono::year{t.year} / t.month / t.day;
    return ymd.ok() && t.hour < 24 && t.minute < 60 && t.second < 60;
}

} // namespace

int CivilTime::weekday() const
{
    const sys_days days = std::chrono::year{year} / month / day;
    return static_cast<int>(std::chrono::weekday{days}.c_encoding());
}

DateTime DateTime::from_civil(const CivilTime& civil)
{
    const sys_days day = std::chrono::year{civil.year} / civil.month / civil.day;
    DateTime result;
    result.seconds_ = static_cast<std::int64_t>((day - kOleEpoch).count()) * kSecondsPerDay
        + civil.hour * 3600LL + civil.minute * 60LL + civil.second;
    return result;
}

DateTime DateTime::from_ole(double days)
{
    const double whole = std::trunc(days);
    DateTime result;
    result.seconds_ = static_cast<std::int64_t>(whole) * kSecondsPerDay
        + std::llround(std::abs(days - whole) * static_cast<double>(kSecondsPerDay));
    return result;
}

std::optional<DateTime> DateTime::parse(std::string_view text)
{
    CivilTime civil;
    const auto read = [&](int& field, std::size_t width) {
        const auto number = take_number(text, width);
        field = number.value_or(0);
        return number.has_value();
    };
    if (!read(civil.year, 4) || !take(text, "-") || !read(civil.month, 2) || !take(text, "-")
        || !read(civil.day, 2)) {
        return std::nullopt;
    }
    if (take(text, " T")) {
        if (!read(civil.hour, 2) || !take(text, ":") || !read(civil.minute, 2)) {
            return std::nullopt;
        }
        if (take(text, ":") && !read(civil.second, 2)) {
            return std::nullopt;
        }
        if (take(text, ".")) {
            text.remove_prefix((std::min)(text.size(), text.find_first_not_of("0123456789")));
        }
    }
    if (!text.empty() || !is_valid(civil)) {
        return std::nullopt;
    }
    return from_civil(civil);
}

CivilTime DateTime::civil() const
{
    const auto days = floor_days(seconds_);
    const auto rest = static_cast<int>(seconds_ - days * kSecondsPerDay);
    const std::chrono::year_month_day ymd{kOleEpoch + std::chrono::days{days}};
    return {static_cast<int>(ymd.year()), static_cast<int>(static_cast<unsigned>(ymd.month())),
        static_cast<int>(static_cast<unsigned>(ymd.day())), rest / 3600, rest / 60 % 60, rest % 60};
}

double DateTime::ole() const
{
    const auto days = floor_days(seconds_);
    const auto fraction =
        static_cast<double>(seconds_ - days * kSecondsPerDay) / static_cast<double>(kSecondsPerDay);
    // Before the zero day the fraction still counts forward from midnight, so its sign follows the day's.
    return days < 0 ? static_cast<double>(days) - fraction : static_cast<double>(days) + fraction;
}

std::string DateTime::text() const
{
    const auto t = civil();
    if (t.year < 0 || t.year > 9999) {
        std::array<char, 40> buffer{};
        const int length = std::snprintf(buffer.data(), buffer.size(), "%04d-%02d-%02d %02d:%02d:%02d",
            t.year, t.month, t.day, t.hour, t.minute, t.second);
        return {buffer.data(), static_cast<std::size_t>(length)};
    }
    // By pairs of digits: every message has several of these, and a format string is taken apart anew each
    // time.
    std::string text = "0000-00-00 00:00:00";
    const auto put = [&](std::size_t at, int number) {
        text[at] = static_cast<char>('0' + number / 10);
        text[at + 1] = static_cast<char>('0' + number % 10);
    };
    put(0, t.year / 100);
    put(2, t.year % 100);
    put(5, t.month);
    put(8, t.day);
    put(11, t.hour);
    put(14, t.minute);
    put(17, t.second);
    return text;
}

std::string DateTime::date_text() const
{
    return text().substr(0, text().find(' '));
}

DateTime DateTime::date() const
{
    DateTime result;
    result.seconds_ = floor_days(seconds_) * kSecondsPerDay;
    return result;
}

DateTime DateTime::plus_seconds(std::int64_t seconds) const
{
    DateTime result;
    result.seconds_ = seconds_ + seconds;
    return result;
}

DateTime DateTime::plus_months(int months) const
{
    auto t = civil();
    const auto moved = std::chrono::year{t.year} / t.month + std::chrono::months{months};
    const std::chrono::year_month_day_last last{moved.year(), std::chrono::month_day_last{moved.month()}};
    t.year = static_cast<int>(moved.year());
    t.month = static_cast<int>(static_cast<unsigned>(moved.month()));
    t.day = (std::min)(t.day, static_cast<int>(static_cast<unsigned>(last.day())));
    return from_civil(t);
}

std::string_view day_name(int weekday)
{
    static constexpr std::array<std::string_view, 7> kNames{
        "Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
    return kNames.at(static_cast<std::size_t>(weekday));
}

std::string_view month_name(int month)
{
    static constexpr std::array<std::string_view, 12> kNames{"January", "February", "March", "April", "May",
        "June", "July", "August", "September", "October", "November", "December"};
    return kNames.at(static_cast<std::size_t>(month) - 1);
}

std::int64_t seconds_between(DateTime from, DateTime to)
{
    return to.seconds() - from.seconds();
}

std::int64_t days_between(DateTime from, DateTime to)
{
    return (to.date().seconds() - from.date().seconds()) / kSecondsPerDay;
}

} // namespace qz
