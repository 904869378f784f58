#include "base/Text.h"

#include <gtest/gtest.h>

#include <string>

using namespace std::string_literals;

TEST(Text, CountsAndCutsCharactersNotBytes)
{
    EXPECT_EQ(qz::character_count("aé€😀"), 4U);
    EXPECT_EQ(qz::first_characters("aé€😀", 3), "aé€");
    EXPECT_EQ(qz::first_characters("é", 1), "é");
    EXPECT_EQ(qz::first_characters("é", 0), "");
    EXPECT_EQ(qz::first_characters("\xC3\xC3\xA9x", 2), "\xC3\xC3\xA9")
        << "a stray byte counts as one character";
}

TEST(Text, ReplacesWhatIsNotUtf8)
{
    const std::string bad = "\xEF\xBF\xBD";
    EXPECT_EQ(qz::valid_utf8("gr\xC3\xBC\xC3\x9F"), "grüß");
    EXPECT_EQ(qz::valid_utf8("a\xFF"
                             "b"),
        "a" + bad + "b");
    EXPECT_EQ(qz::valid_utf8("\xC0\xAF"), bad + bad) << "overlong";
    EXPECT_EQ(qz::valid_utf8("\xED\xA0\x80"), bad + bad + bad) << "surrogate";
    EXPECT_EQ(qz::valid_utf8("\xF4\x90\x80\x80"), bad + bad + bad + bad) << "above U+10FFFF";
    EXPECT_EQ(qz::valid_utf8("x\xE2\x82"), "x" + bad + bad) << "cut in the middle";
}

TEST(Text, LowersLettersOfEveryAlphabet)
{
    EXPECT_EQ(qz::lower("ÀÉ Ωμέγα ЖУК x-1"), "àé ωμέγα жук x-1");
    EXPECT_EQ(qz::lower("A\xFFZ"), "a\xFFz");
    EXPECT_TRUE(qz::equal_ignoring_case("SetUp", "setup"));
    EXPECT_TRUE(qz::equal_ignoring_case("Élan", "éLAN"));
    EXPECT_FALSE(qz::equal_ignoring_case("setup", "setups"));
}

TEST(Text, TrimsBlanksOnly)
{
    EXPECT_EQ(qz::trim("  a b\t "), "a b\t");
    EXPECT_EQ(qz::trim("   "), "");
}

TEST(Text, ReadsTheNumberAtTheStart)
{
    const std::pair<const char*, double> cases[] = {{"2001", 2001}, {" -5 days", -5}, {"+7", 7},
        {"1.5x", 1.5}, {"1e3", 1000}, {"abc", 0}, {"", 0}, {"-", 0}, {"0x10", 0}, {"inf", 0}, {"nan", 0},
        {".5", 0.5}, {"12 34", 12}, {"--3", 0}};
    for (const auto& [text, number] : cases) {
        EXPECT_EQ(qz::leading_number(text), number) << text;
    }
}

TEST(Text, WritesNumbersInPlainDecimal)
{
    EXPECT_EQ(qz::decimal(9007199254740991), "9007199254740991");
    EXPECT_EQ(qz::decimal(1e21), "1000000000000000000000");
    EXPECT_EQ(qz::decimal(-0.0), "0");
    EXPECT_EQ(qz::decimal(0.25), "0.25");
}

TEST(Text, MakesForeignTextHarmless)
{
    EXPECT_EQ(qz::single_line("a\r\nb\0c"s), "abc");
    EXPECT_EQ(qz::printable("\x1b[31mred\n\xC2\x9B"
                            "2J\xFF é"),
        "\\x1b[31mred\\n\\xc2\\x9b2J\\xff é");
}

TEST(Text, ShowsWhatCannotBeSeen)
{
    // What turns the direction of writing, breaks a line, or takes no room at all.
    for (const std::string hidden :
        {"\u202e", "\u202a", "\u2066", "\u2069", "\u200e", "\u200f", "\u061c", "\u200b", "\u200c", "\u200d",
            "\u2060", "\ufeff", "\u00ad", "\u3164", "\ufe0f", "\u2028", "\ufffb", "\U000e0041"}) {
        const auto shown = qz::printable("a" + hidden + "b");
        EXPECT_EQ(shown.substr(0, 3), "a\\x") << shown;
        EXPECT_EQ(shown.find(hidden), std::string::npos) << shown;
    }
    const std::string letters = "שלום مرحبا ไทย हिन्दी 日本 e\u0301 👩";
    EXPECT_EQ(qz::printable(letters), letters);
}
