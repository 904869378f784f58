// Faulty units and partial messages, on a whole engine.
#include "support/Conversation.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace std::string_literals;
using qz::helpers::write_frame;
using qz::test::envelope;
using qz::test::frames;
using qz::test::messages_in;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

namespace {

class UnitReaderTest : public testing::Test {
protected:
    UnitReaderTest() { server.start(); }

    void set(const char* key, const char* value)
    {
        server.engine.ini.WriteIniValue("Safeguards", key, value);
    }
    /// What the engine raised, without the counts of who is online.
    Texts send(qz::test::MemoryPeer& peer, const std::string& bytes)
    {
        server.events.list.clear();
        peer.send(bytes);
        server.settle();
        auto events = server.events.take();
        std::erase_if(events, [](const auto& each) { return each.starts_with("OnLine"); });
        return events;
    }
    Texts send_all(qz::test::MemoryPeer& peer, const Texts& units)
    {
        std::string bytes;
        for (const auto& unit : units) {
            bytes += unit;
        }
        auto events = send(peer, bytes);
        std::erase_if(events, [](const auto& each) { return !each.starts_with("Error"); });
        return events;
    }
    /// The first halves of so many messages.
    static Texts halves(int count, int first = 1)
    {
        Texts units;
        for (int message = first; message < first + count; ++message) {
            units.push_back(write_frame({message, message, 1, 2}, "x"));
        }
        return units;
    }

    qz::test::TestEngine server;
};

const std::string kEcho = envelope("echo sessionidvalue=42");
const std::string kInTwoPieces = [] {
    const auto pieces = frames(envelope("echo sessionidvalue=42 message=" + std::string(3000, 'x')), 2, 9999);
    return pieces[0] + pieces[1];
}();

} // namespace

TEST_F(UnitReaderTest, ReportsEachFaultyUnitAndDropsIt)
{
    const struct {
        const char* what;
        std::string unit;
        const char* error;
    } cases[] = {
        {"no header", "\x01nonsense\x04", "Error DataIncoming 5 @"},
        {"half a header", "\x01\x11"s + "1\x11\x12"s + "1\x04", "Error DataIncoming 5 @"},
        {"no such chunk", write_frame({1, 1, 3, 2}, "x"), "Error DataIncoming 9 @"},
        {"no number", "\x02\x03", "Error CheckMsgIncomingRules 5 @"},
        {"no end of the number", "\x02\x0E"s + "1\r\necho sessionidvalue=42\x03",
            "Error CheckMsgIncomingRules 5 @"},
        {"no start", write_frame({1, 1, 1, 1}, "\x0E"s + "1\x0F\r\necho sessionidvalue=42\x03"),
            "Error CheckMsgIncomingRules 5 @"},
        {"no end", write_frame({1, 1, 1, 1}, "\x02\x0E"s + "1\x0F\r\necho sessionidvalue=42"),
            "Error CheckMsgIncomingRules 5 @"},
        {"no blank", envelope("echo"), "Error CheckMsgIncomingRules 5 @"},
        {"nothing", envelope(""), "Error CheckMsgIncomingRules 5 @"},
    };
    auto ann = server.client_on_line("ann", "42");
    for (const auto& each : cases) {
        EXPECT_THAT(send(ann, each.unit), ElementsAre(each.error)) << each.what;
        EXPECT_THAT(send(ann, each.unit), ElementsAre(each.error)) << each.what << ", again";
        EXPECT_THAT(messages_in(ann.take()), IsEmpty()) << each.what;
        EXPECT_THAT(send(ann, kEcho), ElementsAre("Outgoing", "Ingoing")) << each.what;
        EXPECT_THAT(messages_in(ann.take()), ElementsAre("echo "));
    }
    EXPECT_EQ(server.events.last_error, "QZ_Server: Invalid procedure call or argument");
}

TEST_F(UnitReaderTest, ClosesAConnectionWithTooManyFaultyUnits)
{
    set("CloseMalformed", "3");
    auto ann = server.client_on_line("ann", "42");
    auto stranger = server.client();
    EXPECT_THAT(send(ann, "\x02\x03"), ElementsAre("Error CheckMsgIncomingRules 5 @"));
    EXPECT_THAT(send(ann, kEcho), ElementsAre("Outgoing", "Ingoing"));
    EXPECT_THAT(send(ann, "\x01nonsense\x04"), IsEmpty());
    EXPECT_THAT(send(stranger, "\x02\x03\x02\x03"), ElementsAre("Error CheckMsgIncomingRules 5 @"));
    EXPECT_FALSE(ann.ended());
    const auto number = std::to_string(ann.number());
    EXPECT_THAT(send(ann, "\x02\x03" + kEcho),
        ElementsAre("Log Socket " + number + " closed: 3 faulty units", "Outgoing",
            "Log New status for ann: offline [ann, 192.0.2.10]"));
    EXPECT_TRUE(ann.ended());
    EXPECT_THAT(messages_in(ann.take()),
        ElementsAre("echo ", "notice Your connection is closed: too many faulty requests"));
    EXPECT_FALSE(stranger.ended());

    server.machine.clock().advance(std::chrono::seconds(61));
    auto bob = server.client_on_line("bob", "42");
    ASSERT_EQ(std::to_string(bob.number()), number) << "the number is another's by now";
    const auto old_answer = envelope("chunkreceived"); // without a blank
    EXPECT_THAT(send(bob, old_answer + write_frame({1, 1, 1, 1}, old_answer) + old_answer), IsEmpty());
    EXPECT_THAT(send(bob, "\x02\x03\x02\x03"), ElementsAre("Error CheckMsgIncomingRules 5 @"));
    EXPECT_FALSE(bob.ended());
}

TEST_F(UnitReaderTest, StrangersKeepNoChunksAndUsersOnlyTheirOwn)
{
    set("ChunksPerConnection", "100");
    for (int i = 0; i < 11; ++i) {
        auto stranger = server.client("198.51.100.7");
        const auto errors = send_all(stranger, halves(100));
        ASSERT_EQ(errors.size(), 100U);
        EXPECT_EQ(errors[0], "Error DataIncoming 7 @");
    }
    EXPECT_EQ(server.engine.chunks.size(), 0U);
    EXPECT_EQ(server.events.last_error,
        "QZ_Server: ChunksPerConnection: before the logon a message must fit into one chunk");
    auto bob = server.client_on_line("bob", "43");
    EXPECT_THAT(send_all(bob, halves(101)), ElementsAre("Error DataIncoming 7 @"));
    EXPECT_EQ(server.events.last_error,
        "QZ_Server: ChunksPerConnection is reached: 100 chunks are kept of this connection; a chunk was "
        "dropped");
    for (int i = 0; i < 10; ++i) { // more than the common table holds
        auto user = server.client_on_line("user" + std::to_string(i), "44");
        EXPECT_THAT(send_all(user, halves(100)), IsEmpty());
    }
    auto ann = server.client_on_line("ann", "42");
    EXPECT_THAT(send(ann, kInTwoPieces), ElementsAre("Outgoing", "Ingoing"));
    EXPECT_THAT(messages_in(ann.take()), ElementsAre("echo "));
}

TEST_F(UnitReaderTest, WithoutTheSafeguardAllShareOneTable)
{
    auto stranger = server.client("198.51.100.7");
    EXPECT_THAT(send_all(stranger, halves(1002)), ElementsAre("Error DataIncoming 7 @"));
    EXPECT_EQ(server.engine.chunks.size(), 1001U);
    auto ann = server.client_on_line("ann", "42");
    EXPECT_THAT(send_all(ann, halves(1)), ElementsAre("Error DataIncoming 7 @"));
    EXPECT_EQ(server.events.last_error,
        "QZ_Server: The store of partial messages is full: 1001 chunks are kept; a chunk was dropped");
}
