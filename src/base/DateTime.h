// A moment of local time, as the interface, the tables and the settings use it.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qz {

/// Year, month and day with the time of day, each in its natural range (month 1 to 12, weekday 0 = Sunday).
struct CivilTime {
    int year = 1899;
    int month = 12;
    int day = 30;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int weekday() const;
};

/// Local date and time in whole seconds. A default-constructed value is the empty time "0.00.00", midnight of
/// 30 December 1899, the zero of OLE dates; it stands for "never".
class DateTime {
public:
    constexpr DateTime() = default;
    static DateTime from_civil(const CivilTime& civil);
    /// From an OLE date: days since 30 December 1899, the time of day in the fraction (whose sign is
    /// ignored).
    static DateTime from_ole(double days);
    /// Reads "yyyy-mm-dd hh:mm:ss" (a "T" between, a fraction of the second, or no time of day are accepted
    /// too).
    static std::optional<DateTime> parse(std::string_view text);

    CivilTime civil() const;
    double ole() const;
    /// The default text form, "yyyy-mm-dd hh:mm:ss".
    std::string text() const;
    /// Only the date: "yyyy-mm-dd".
    std::string date_text() const;

    bool empty() const { return seconds_ == 0; }
    /// Seconds since the empty time; negative before it.
    std::int64_t seconds() const { return seconds_; }
    /// Midnight of the same day.
    DateTime date() const;
    DateTime plus_seconds(std::int64_t seconds) const;
    /// The same day and time `months` calendar months later; the 31st becomes the last day of a shorter
    /// month.
    DateTime plus_months(int months) const;

    auto operator<=>(const DateTime&) const = default; // NOLINT(modernize-use-nullptr): a fault of the check

private:
    std::int64_t seconds_ = 0;
};

/// English names, whatever the locale: "Monday" (weekday 0 = Sunday), "March" (month 1 to 12).
std::string_view day_name(int weekday);
std::string_view month_name(int month);

/// Whole seconds from `from` to `to`; negative when `to` is the earlier one.
std::int64_t seconds_between(DateTime from, DateTime to);

/// Number of midnights between the two, as DateDiff("d") counts.
std::int64_t days_between(DateTime from, DateTime to);

} // namespace qz
