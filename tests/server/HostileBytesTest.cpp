// Bytes that no client sends: they do no harm, and another client does not notice.
#include "base/Text.h"
#include "helpers/Frame.h"
#include "support/Conversation.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

using namespace std::string_literals;
using qz::helpers::write_frame;
using qz::test::envelope;
using qz::test::messages_in;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class HostileBytes : public testing::Test {
protected:
    /// The innocent client is served, nobody else is on line, and no chunk is left of those who have gone.
    void expect_unharmed()
    {
        innocent.send(envelope("echo sessionidvalue=42"));
        server.settle();
        EXPECT_THAT(messages_in(innocent.take()), ElementsAre("echo "));
        EXPECT_EQ(server.engine.connections.count_on_line(), 1);
    }
    /// A new stranger sends the bytes and goes.
    void stranger_sends(const std::string& bytes, std::size_t piece = SIZE_MAX)
    {
        auto peer = server.client("198.51.100.7");
        peer.send(bytes, piece);
        server.settle();
        peer.vanish();
        server.settle();
        server.machine.clock().advance(std::chrono::seconds(61)); // so that the pool need not grow
    }

    qz::test::TestEngine server;
    qz::test::MemoryPeer innocent = (server.start(), server.client_on_line("innocent", "42"));
};

/// A text with a bad byte at every place.
std::vector<std::string> spoiled(const std::string& text)
{
    std::vector<std::string> result;
    for (std::size_t at = 0; at <= text.size(); ++at) {
        for (const char byte : "\x01\x02\x03\x04\x0E\x0F\x11\x1F\xFF"s + '\0') {
            result.push_back(text.substr(0, at) + byte + text.substr(at));
        }
    }
    return result;
}

} // namespace

TEST_F(HostileBytes, UnitsCutAtEveryByte)
{
    const auto unit = envelope("echo sessionidvalue=7 msg=\xC3\xA9");
    const auto framed = qz::test::frames(unit, 2);
    const auto stream = "noise"s + unit + framed[1] + unit + framed[0];
    auto ann = server.client_on_line("ann", "7");
    for (std::size_t piece = 1; piece <= stream.size(); ++piece) {
        ann.send(stream, piece);
        server.settle();
        ASSERT_THAT(messages_in(ann.take()), testing::Each("echo ")) << piece;
    }
    for (std::size_t end = 0; end < stream.size(); ++end) {
        stranger_sends(stream.substr(0, end));
    }
    ann.vanish();
    server.settle();
    expect_unharmed();
    EXPECT_EQ(server.engine.chunks.size(), 0U);
    EXPECT_EQ(server.engine.pool.get_SocketsCount(), 100);
}

TEST_F(HostileBytes, SpoiledUnits)
{
    for (const auto& bytes : spoiled(envelope("logon a=b"))) {
        stranger_sends(bytes);
    }
    for (const auto& bytes : spoiled(write_frame({1, 2, 1, 1}, envelope("logon")))) {
        stranger_sends(bytes, 3);
    }
    expect_unharmed();
    EXPECT_THAT(server.events.take_starting("Error DataIncoming 51"), IsEmpty()) << "no internal error";
}

TEST_F(HostileBytes, NumbersThatMakeNoSense)
{
    const std::string numbers[] = {"", "-1", "0", "2", "99999999999999999999", "2147483647", "2147483648",
        "1e9", "nan", "0x1", " 1", "1 ", "+1"};
    std::string stream;
    for (const auto& index : numbers) {
        for (const auto& count : numbers) {
            stream += qz::replace_all(qz::replace_all("\x01\x11"
                                                      "1\x11\x12$\x12\x13$\x13\x14#\x14x\x04",
                                          "$", index),
                "#", count);
            stream += qz::replace_all("\x02\x0E$\x0F\r\nlogon\x03", "$", index);
        }
    }
    stranger_sends(stream);
    expect_unharmed();
    EXPECT_EQ(server.engine.chunks.size(), 0U);
}

TEST_F(HostileBytes, OversizedUnits)
{
    stranger_sends("\x02\x0E"
                   "1\x0F\r\nlogon "
            + std::string(1 << 20, 'x') + "\x03",
        4096);
    stranger_sends(std::string(1 << 20, 'x'), 4096);
    // A message of many chunks, longer than its positions reach.
    std::string stream;
    const auto text = envelope("logon " + std::string(40'000, 'x'));
    for (int index = 1; index <= 20; ++index) {
        stream +=
            write_frame({index, 1, index, 20}, text.substr(static_cast<std::size_t>(index - 1) * 2048, 2048));
    }
    server.events.list.clear();
    stranger_sends(stream);
    EXPECT_THAT(server.events.take_starting("Error"), ElementsAre("Error CheckMsgIncomingRules 6 @"));
    expect_unharmed();
    EXPECT_EQ(server.engine.chunks.size(), 0U);
}

TEST_F(HostileBytes, AFloodOfChunksLeavesRoomForOthers)
{
    server.engine.ini.WriteIniValue("Safeguards", "ChunksPerConnection", "100");
    auto flood = server.client("198.51.100.7");
    for (int message = 1; message <= 5000; ++message) {
        flood.send(write_frame({message, message, 1, 2}, "x"));
    }
    server.settle();
    EXPECT_EQ(server.engine.chunks.size(), 0U);
    for (const auto& frame : qz::test::frames(envelope("echo sessionidvalue=42 msg=in pieces"), 3)) {
        innocent.send(frame);
    }
    server.settle();
    EXPECT_THAT(messages_in(innocent.take()), ElementsAre("echo "));
    server.machine.tick();
    server.machine.clock().advance(std::chrono::seconds(31));
    server.machine.tick();
    EXPECT_EQ(server.engine.chunks.size(), 0U) << "the sweep gives them up";
    expect_unharmed();
}

TEST_F(HostileBytes, ControlCharactersInEveryField)
{
    for (char control = 0; control < 0x20; ++control) {
        if (control == 0x03) {
            continue; // ends the envelope
        }
        const auto c = std::string(1, control);
        auto ann = server.client_on_line("ann" + c, "7" + c);
        for (const auto* message : {"echo sessionidvalue=7$", "echo$ sessionidvalue=7$",
                 "filetransfer$ a$=b$ sessionidvalue=7$", "echo sessionidvalue=7$ screenname=$ myIP=$"}) {
            ann.send(envelope(qz::replace_all(message, "$", c)));
        }
        server.settle();
        for (const auto& reply : messages_in(ann.take())) {
            EXPECT_EQ(reply.find_first_of("\x01\x02\x03\x04"), std::string::npos);
        }
        ann.vanish();
        server.settle();
        server.machine.clock().advance(std::chrono::seconds(61));
    }
    expect_unharmed();
    for (const auto& event : server.events.take_starting("Error")) { // of a body that lost its end
        EXPECT_EQ(event, "Error CheckMsgIncomingRules 5 @");
    }
}

TEST_F(HostileBytes, RandomBytes)
{
    const auto seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string pieces[] = {"\x01", "\x02", "\x03", "\x04", "\x0E", "\x0F", "\x11", "\x12", "\x13",
        "\x14", "\x1F", " ", "1", "2", "\r\n", "echo", "logon", "sessionidvalue=", "42", "myIP=", "\xC3",
        "\xFF", "\0"s, envelope("logon"), write_frame({1, 1, 1, 2}, "x")};
    for (int round = 0; round < 300; ++round) {
        std::string bytes;
        for (auto count = random() % 60; count > 0; --count) {
            bytes += random() % 4 == 0 ? std::string(1, static_cast<char>(random()))
                                       : pieces[random() % std::size(pieces)];
        }
        stranger_sends(bytes, 1 + random() % 40);
        if (round % 50 == 0) {
            expect_unharmed();
        }
    }
    expect_unharmed();
    EXPECT_EQ(server.engine.chunks.size(), 0U);
    for (const auto& event : server.events.take_starting("Error")) {
        EXPECT_TRUE(event == "Error DataIncoming 9 @" || event == "Error DataIncoming 5 @"
            || event == "Error CheckMsgIncomingRules 5 @")
            << event;
    }
}
