#include "helpers/Frame.h"
#include "helpers/ServerCommandNames.h"
#include "helpers/UnitCutter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using namespace std::string_literals;
using qz::helpers::FrameHeader;
using qz::helpers::parse_frame;
using qz::helpers::server_command_names;
using qz::helpers::split_into_chunks;
using qz::helpers::write_frame;

namespace {

const std::string kWellFormed = "\x01\x11"
                                "5\x11\x12"
                                "6\x12\x13"
                                "1\x13\x14"
                                "2\x14"
                                "chunk\x04";

} // namespace

TEST(Frame, IsWrittenWithItsMarksAndReadBack)
{
    const FrameHeader header{5, 6, 1, 2};
    EXPECT_EQ(write_frame(header, "chunk"), kWellFormed);
    for (const auto& [each, chunk] : {std::pair{header, "chunk"s}, {{INT32_MAX, 0, 0, INT32_MAX}, ""s},
             {header,
                 "\x02"
                 "5 \x11"
                 "x\x14\x03"s}}) {
        const auto text = write_frame(each, chunk);
        const auto frame = parse_frame(text);
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->header, each);
        EXPECT_EQ(frame->chunk, chunk);
    }
}

TEST(Frame, AnythingElseIsNoFrame)
{
    for (std::size_t length = 0; length < kWellFormed.size(); ++length) {
        EXPECT_FALSE(parse_frame(kWellFormed.substr(0, length))) << "cut after " << length;
    }
    const auto with = [](std::size_t at, const std::string& number) {
        auto text = kWellFormed;
        return text.replace(at, 1, number);
    };
    EXPECT_TRUE(parse_frame(with(2, "0002147483647")));
    for (const auto* number :
        {"", "-1", "+1", " 1", "1 ", "1.0", "0x1", "2147483648", "99999999999999999999", "1e3", "1\0211"}) {
        EXPECT_FALSE(parse_frame(with(2, number))) << "frame number " << number;
        EXPECT_FALSE(parse_frame(with(11, number))) << "chunk count " << number;
    }
    EXPECT_FALSE(parse_frame(" " + kWellFormed));
    EXPECT_FALSE(parse_frame(kWellFormed + " "));
    EXPECT_FALSE(parse_frame(kWellFormed + "\x04"));
    EXPECT_FALSE(parse_frame("\x01\x12"
                             "6\x12\x11"
                             "5\x11\x13"
                             "1\x13\x14"
                             "2\x14"
                             "chunk\x04"))
        << "numbers out of order";
}

TEST(Frame, ChunksHoldCharactersNotBytes)
{
    const std::pair<std::size_t, std::size_t> cases[] = {
        {0, 0}, {1, 1}, {2047, 1}, {2048, 1}, {2049, 2}, {3072, 2}, {5120, 3}, {32768, 16}, {32769, 17}};
    for (const auto& [characters, count] : cases) {
        std::string text;
        for (std::size_t i = 0; i < characters; ++i) {
            text += i % 3 == 0 ? "€" : "x";
        }
        const auto chunks = split_into_chunks(text);
        EXPECT_EQ(chunks.size(), count) << characters;
        std::string joined;
        for (const auto chunk : chunks) {
            joined += chunk;
        }
        EXPECT_EQ(joined, text);
    }
    EXPECT_EQ(split_into_chunks(std::string(2047, 'x') + "€y").back(), "y");
}

TEST(ServerCommandNames, ComposesTheEnvelope)
{
    EXPECT_EQ(server_command_names().compose("logon", "answer=yes", 9007199254740991.0),
        "\x02\x0E"
        "9007199254740991\x0F\r\nlogon answer=yes\x03");
    EXPECT_EQ(server_command_names().compose("echo", "", 7),
        "\x02\x0E"
        "7\x0F\r\necho \x03")
        << "the blank stays without a body";
}

TEST(ServerCommandNames, NoTextCanForgeAFrame)
{
    std::string all;
    for (char c = 0; c < 0x21; ++c) {
        all.push_back(c);
    }
    const auto message = server_command_names().compose("m\x03sg", "msg=" + all + "\x7F\xC2\x85", 1);
    std::string_view bytes = message;
    const auto unit = qz::helpers::UnitCutter{}.next_unit(bytes);
    EXPECT_EQ(unit, message) << "one unit, whole";
    const std::string bad = "\xEF\xBF\xBD";
    const auto repeat = [&](int count) {
        std::string result;
        for (; count > 0; --count) {
            result += bad;
        }
        return result;
    };
    EXPECT_EQ(message,
        "\x02\x0E"
        "1\x0F\r\nm"
            + bad + "sg msg=" + repeat(9) + "\t\n" + repeat(2) + "\r" + repeat(17) + "\x1F \x7F\xC2\x85\x03");
}
