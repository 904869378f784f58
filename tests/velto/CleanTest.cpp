#include "velto/Clean.h"

#include "velto/Line.h"
#include "velto/Wrap.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <utility>

using namespace velto;

TEST(Clean, NothingForeignSteersTheTerminal)
{
    const std::pair<std::string, std::string> cases[] = {
        {"Grüße, 日本 👩‍🚀 e\u0301", "Grüße, 日本 👩‍🚀 e\u0301"},
        {"\x1b[31mred\x1b]0;title\x07", "[31mred]0;title"}, {"a\r\nb\tc\n", "a b c "},
        {std::string("x\0y", 3), "xy"}, {"\u009b31m\u0090q\u009c\u0085end", "31mq end"}, {"\x7f\x08ok", "ok"},
        {"evil\u202etxt.exe\u202c \u2066a\u2069\u200f\u061c", "eviltxt.exe a"},
        {"שלום مرحبا می\u200cخواهم क्\u200dष ❤️\u200d🔥",
            "שלום مرحبا می\u200cخواهم क्\u200dष ❤️\u200d🔥"},
        {"an\u200bn\u200da\u2060\ufe0f\u00ad \u200d👩\u200d\u200d", "anna 👩\u200d"}, // nothing to join there
        {"one\u2028two\u2029three\ufeff", "one two three"},
        {"\x9b\x33", "\uFFFD3"},                        // a C1 code as a single byte is no UTF-8
        {"\xc0\x9b[31m", "\uFFFD\uFFFD[31m"},           // ESC in two bytes
        {"cut \xf0\x9f\x91", "cut \uFFFD\uFFFD\uFFFD"}, // the end of a letter is missing
    };
    for (const auto& [text, shown] : cases) {
        EXPECT_EQ(clean(text), shown);
    }
}

TEST(Clean, EveryTextOfALineGoesThroughIt)
{
    std::string hostile;
    for (int c = 0; c < 256; ++c) {
        hostile += static_cast<char>(c);
        hostile += "\xc2";
        hostile += static_cast<char>(c);
    }
    for (const auto kind : {Line::Kind::Message, Line::Kind::Own, Line::Kind::Receipt, Line::Kind::News,
             Line::Kind::Notice, Line::Kind::Trouble}) {
        for (const auto& who : {std::string(), hostile}) {
            const auto line = render({kind, who, hostile, {}}, Colour::Off);
            for (std::size_t i = 0; i < line.size(); ++i) {
                const auto byte = static_cast<unsigned char>(line[i]);
                const auto next = static_cast<unsigned char>(i + 1 < line.size() ? line[i + 1] : ' ');
                EXPECT_FALSE(byte < 0x20 || byte == 0x7f || (byte == 0xc2 && next < 0xa0)) << i;
            }
        }
    }
}

TEST(Wrap, RowsBreakAtBlanksAndFit)
{
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const std::pair<std::string, std::string> cases[] = {
        {"12:34 exactly twenty", "12:34 exactly twenty"},
        {"12:34 exactly twenty!", "12:34 exactly\r\n      twenty!"},
        {"12:34 日本語日本 日本語日本語日", "12:34 日本語日本\r\n      日本語日本語日"},
        {"\x1b[2m12:34\x1b[0m \x1b[33mexactly twenty\x1b[0m",
            "\x1b[2m12:34\x1b[0m \x1b[33mexactly twenty\x1b[0m"},
        {"12:34 aWordThatIsLongerThanARow and on", "12:34\r\n      aWordThatIsLongerThanARow and on"},
        {"12:34 exactly twenty and more", "12:34 exactly twenty\r\n      and more"},
        {"12:34 keeps  two   blanks inside", "12:34 keeps  two  \r\n      blanks inside"},
    };
    for (const auto& [line, rows] : cases) {
        EXPECT_EQ(wrapped(line, 20), rows);
    }
    EXPECT_EQ(wrapped("12:34 a b c d e f", 5), "12:34 a b c d e f") << "hopelessly narrow";
}
