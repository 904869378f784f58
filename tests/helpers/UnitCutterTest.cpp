#include "helpers/UnitCutter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace std::string_literals;
using qz::helpers::UnitCutter;

namespace {

const std::string kFrame = "\x01\x11"
                           "7\x11\x02inner\x03 text\x04";
const std::string kEnvelope = "\x02\x0E"
                              "15\x0F\r\necho \x03";
const std::string kReplacement = "\xEF\xBF\xBD";

std::vector<std::string> units(UnitCutter& cutter, std::string_view bytes)
{
    std::vector<std::string> result;
    while (auto unit = cutter.next_unit(bytes)) {
        result.push_back(std::move(*unit));
    }
    EXPECT_TRUE(bytes.empty());
    return result;
}

std::vector<std::string> units_of_pieces(std::string_view bytes, std::size_t piece)
{
    UnitCutter cutter;
    std::vector<std::string> result;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        for (auto& unit : units(cutter, bytes.substr(at, piece))) {
            result.push_back(std::move(unit));
        }
    }
    return result;
}

} // namespace

TEST(UnitCutter, FindsTheSameUnitsInPiecesOfEverySize)
{
    const auto stream =
        "noise\x03\x04 " + kFrame + kEnvelope + "\r\n" + kEnvelope + kFrame + "\x02\x03\x01\x04 rest";
    const std::vector<std::string> expected{kFrame, kEnvelope, kEnvelope, kFrame, "\x02\x03", "\x01\x04"};
    for (std::size_t piece = 1; piece <= stream.size(); ++piece) {
        EXPECT_EQ(units_of_pieces(stream, piece), expected) << "pieces of " << piece;
    }
}

TEST(UnitCutter, CutsAtTheEndMarkerThatBelongsToTheStart)
{
    UnitCutter cutter;
    EXPECT_EQ(units(cutter, "\x02 a\x04 b\x01 c\x02\x03"), std::vector{"\x02 a\x04 b\x01 c\x02\x03"s});
    EXPECT_EQ(units(cutter, "\x01 a\x03\x01 b\x04"), std::vector{"\x01 a\x03\x01 b\x04"s});
    EXPECT_EQ(units(cutter, "\x02 a\0b\x03"s), std::vector{"\x02 a\0b\x03"s});
}

TEST(UnitCutter, MakesEachUnitWellFormed)
{
    const auto split = "\x02gr\xC3\xBC\xE2\x82\xAC\x03"s;
    EXPECT_EQ(units_of_pieces(split, 1), std::vector{split}) << "a character cut by the network stays whole";
    EXPECT_EQ(units_of_pieces("\x02"
                              "a\xFF"
                              "b\xE2\x82\x03",
                  2),
        std::vector{"\x02"
                    "a"
            + kReplacement + "b" + kReplacement + kReplacement + "\x03"});
}

TEST(UnitCutter, GivesUpAboveTheLimitOnly)
{
    for (const std::size_t piece : {1U, 7U, 1000U, 40000U}) {
        const auto largest = "\x02" + std::string(UnitCutter::kMaxUnit - 1, 'x') + "\x03";
        auto stream = largest;
        EXPECT_EQ(units_of_pieces(stream.append(kEnvelope), piece), (std::vector{largest, kEnvelope}))
            << piece;

        stream = kFrame;
        stream.append("\x02").append(UnitCutter::kMaxUnit, 'x').append("\x03").append(kEnvelope);
        EXPECT_EQ(units_of_pieces(stream, piece), std::vector{kFrame}) << piece;
    }
    UnitCutter cutter;
    EXPECT_TRUE(units(cutter, std::string(100000, 'x')).empty());
    EXPECT_FALSE(cutter.overflowed()) << "noise between units is dropped, not kept";
    EXPECT_TRUE(units(cutter, "\x01" + std::string(UnitCutter::kMaxUnit - 1, 'x')).empty());
    EXPECT_FALSE(cutter.overflowed());
    EXPECT_TRUE(units(cutter, "x").empty());
    EXPECT_TRUE(cutter.overflowed());
}
