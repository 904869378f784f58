#include "net/Sender.h"

#include "base/Text.h"
#include "support/TestNet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using qz::helpers::parse_frame;
using qz::test::TestNet;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class SenderTest : public testing::Test {
protected:
    SenderTest()
    {
        net.pool.LoadSockets(10, false);
        peer.take();
        net.notes.clear();
    }
    /// "frame message index/count size" of each unit that came.
    std::vector<std::string> headers()
    {
        net.loop.run_pending();
        std::vector<std::string> result;
        text.clear();
        for (const auto& unit : peer.take_units()) {
            const auto frame = parse_frame(unit);
            const auto& header = frame.value().header;
            text += frame->chunk;
            result.push_back(std::to_string(header.frame_number) + " " + std::to_string(header.message_number)
                + " " + std::to_string(header.chunk_index) + "/" + std::to_string(header.chunk_count) + " "
                + std::to_string(qz::character_count(frame->chunk)));
        }
        return result;
    }
    /// A body that makes an envelope of so many characters.
    static std::string body(std::size_t characters)
    {
        const std::size_t around = 12; // markers and fillers, "7", "echo" and its blank
        std::string result;
        while (result.size() < 2 * (characters - around)) {
            result += "\xC3\xA9";
        }
        return result;
    }
    void send(std::size_t characters, std::int16_t socket = 1)
    {
        double number = 7;
        net.sender.SendData(socket, "echo", body(characters), number);
        EXPECT_EQ(number, 7);
    }

    TestNet net;
    qz::test::MemoryPeer peer = (net.pool.LoadSockets(10, false), net.client());
    std::string text;
};

} // namespace

TEST_F(SenderTest, CutsAtEvery2048Characters)
{
    // The session offer was frame 1 of message 1.
    send(2048);
    EXPECT_THAT(headers(), ElementsAre("2 2 1/1 2048"));
    EXPECT_EQ(text.substr(0, 11),
        "\x02\x0E"
        "7\x0F\r\necho ");
    send(2049);
    EXPECT_THAT(headers(), ElementsAre("3 3 1/2 2048", "4 3 2/2 1"));
    send(3072);
    EXPECT_THAT(headers(), ElementsAre("5 4 1/2 2048", "6 4 2/2 1024"));
    EXPECT_EQ(net.take_notes(), (std::vector<std::string>(5, "out")));
}

TEST_F(SenderTest, TheSeventeenthChunkOverflows)
{
    send(std::size_t{16} * 2048);
    EXPECT_EQ(headers().back(), "17 2 16/16 2048");
    EXPECT_THAT(net.journal.failures, IsEmpty());
    send(std::size_t{16} * 2048 + 1);
    EXPECT_EQ(headers().back(), "33 3 16/17 2048");
    ASSERT_EQ(net.journal.failures.size(), 1U);
    EXPECT_EQ(net.journal.failures[0].routine, "SendData");
    EXPECT_EQ(net.journal.failures[0].number, 6);
    EXPECT_FALSE(net.sender.is_sending());
    send(100);
    EXPECT_THAT(headers(), ElementsAre("35 4 1/1 100")) << "the chunk that overflowed was counted";
}

TEST_F(SenderTest, SkipsWhatIsNotConnected)
{
    net.closer.SocketClosing(1);
    send(3000);
    for (const int socket : {0, 2, 99, -1}) {
        send(std::size_t{20} * 2048, static_cast<std::int16_t>(socket));
    }
    EXPECT_THAT(net.notes, IsEmpty());
    EXPECT_THAT(headers(), IsEmpty());
    EXPECT_THAT(net.journal.failures, IsEmpty());
    auto other = net.client();
    EXPECT_EQ(parse_frame(other.take()).value().header.frame_number, 1 + 2 + 4 * 20 + 1)
        << "skipped, but counted";
    EXPECT_THAT(net.take_notes(), ElementsAre("out", "new 192.0.2.10 on 2"));
    net.sender.use(nullptr);
    send(100);
    EXPECT_THAT(net.notes, IsEmpty());
}

TEST_F(SenderTest, DrawsANumberWhereThereIsNone)
{
    double number = 0;
    net.sender.SendData(2, "echo", "", number);
    EXPECT_GE(number, 1);
    const auto first = number;
    net.sender.SendData(2, "echo", "", number);
    EXPECT_EQ(number, first);
}

TEST_F(SenderTest, ANestedSendHasNumbersOfItsOwn)
{
    net.loop.set_events_slow(true);
    net.loop.post([&] {
        net.loop.post([&] {
            EXPECT_TRUE(net.sender.is_sending());
            send(100);
        });
        send(5000);
    });
    EXPECT_THAT(headers(), ElementsAre("2 2 1/3 2048", "3 3 1/1 100", "4 2 2/3 2048", "5 2 3/3 904"));
}

TEST_F(SenderTest, APeerThatGoesInTheMiddleGetsNoMore)
{
    net.loop.set_events_slow(true);
    net.loop.post([&] {
        net.loop.post([&] { net.closer.SocketClosing(1); });
        send(5000);
    });
    EXPECT_THAT(headers(), ElementsAre("2 2 1/3 2048"));
    EXPECT_TRUE(peer.ended());
    EXPECT_THAT(net.journal.failures, IsEmpty());
}
