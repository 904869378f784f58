#include "base/DateTime.h"
#include "base/Numbers.h"

#include <gtest/gtest.h>

using qz::DateTime;

namespace {

DateTime at(const char* text)
{
    return DateTime::parse(text).value();
}

} // namespace

TEST(DateTime, TheEmptyTimeIsTheZeroOfOleDates)
{
    EXPECT_TRUE(DateTime{}.empty());
    EXPECT_EQ(DateTime{}.text(), "1899-12-30 00:00:00");
    EXPECT_EQ(DateTime{}.ole(), 0);
}

TEST(DateTime, KeepsDateAndTimeThroughEveryForm)
{
    for (const auto* text :
        {"2026-02-28 23:59:59", "2024-02-29 00:00:00", "1899-12-29 18:00:00", "1900-01-01 06:00:00"}) {
        const auto moment = at(text);
        EXPECT_EQ(moment.text(), text);
        EXPECT_EQ(DateTime::from_civil(moment.civil()), moment) << text;
        EXPECT_EQ(DateTime::from_ole(moment.ole()), moment) << text;
    }
    EXPECT_DOUBLE_EQ(at("1899-12-29 18:00:00").ole(), -1.75);
    EXPECT_EQ(at("2026-11-22T10:11:12.987"), at("2026-11-22 10:11:12"));
    EXPECT_EQ(at("2026-11-22").text(), "2026-11-22 00:00:00");
}

TEST(DateTime, RefusesWhatIsNoDate)
{
    for (const auto* text : {"", "x", "2026-13-01", "2026-02-30", "2026-11-22 24:00:00",
             "2026-11-22 10:11:12 ", "22/11/2026", "2026-1-1"}) {
        EXPECT_FALSE(DateTime::parse(text)) << text;
    }
}

TEST(DateTime, CountsSecondsAndMidnights)
{
    EXPECT_EQ(qz::seconds_between(at("2026-12-31 23:59:50"), at("2027-01-01 00:00:05")), 15);
    EXPECT_EQ(qz::days_between(at("2026-12-31 23:59:59"), at("2027-01-01 00:00:00")), 1);
    EXPECT_EQ(qz::days_between(at("2027-01-01 00:00:00"), at("2026-12-30 23:00:00")), -2);
    EXPECT_EQ(at("2026-11-22 01:00:00").civil().weekday(), 0);
}

TEST(DateTime, AMonthLaterKeepsTheDayWhereThereIsOne)
{
    EXPECT_EQ(at("2027-01-31 08:00:00").plus_months(1).text(), "2027-02-28 08:00:00");
    EXPECT_EQ(at("2026-12-15 08:00:00").plus_months(1).text(), "2027-01-15 08:00:00");
}

TEST(Numbers, RoundHalvesToEvenAndOverflow)
{
    EXPECT_EQ(qz::to_integer<std::int16_t>(2.5), 2);
    EXPECT_EQ(qz::to_integer<std::int16_t>(3.5), 4);
    EXPECT_EQ(qz::to_integer<std::int16_t>(32767.4), 32767);
    EXPECT_EQ(qz::to_integer<std::int16_t>(-32768.5), -32768);
    EXPECT_THROW(qz::to_integer<std::int16_t>(32767.5), qz::EngineError);
    EXPECT_THROW(qz::to_integer<std::uint16_t>(-1), qz::EngineError);
    EXPECT_THROW(qz::to_integer<std::int32_t>(std::nan("")), qz::EngineError);
}

TEST(DateTime, NamesAreEnglishAndStartWithSundayAndJanuary)
{
    const auto moment = at("2026-11-22"); // a Sunday
    EXPECT_EQ(qz::day_name(moment.civil().weekday()), "Sunday");
    EXPECT_EQ(qz::month_name(moment.civil().month), "November");
    EXPECT_EQ(qz::day_name(6), "Saturday");
    EXPECT_EQ(qz::month_name(1), "January");
    EXPECT_EQ(qz::month_name(12), "December");
}
