// From units to messages whose sender is known, and the end of a connection.
#include "net/Receiver.h"

#include "base/Text.h"
#include "helpers/ServerCommandNames.h"
#include "support/TestNet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using qz::helpers::write_frame;
using qz::test::TestNet;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

namespace {

/// The envelope is the data itself: "number word rest".
class ReceiverTest : public testing::Test, public qz::net::IncomingMessages {
protected:
    ReceiverTest()
    {
        net.pool.LoadSockets(10, false);
        peer = net.client();
        peer->take();
        net.on_unit = [&](std::int16_t socket, const std::string& unit) {
            receiver.DataIncoming(socket, unit);
        };
        net.notes.clear();
    }

    qz::net::Envelope CheckMsgIncomingRules(const std::string& data) override
    {
        const auto body = data.substr(1, data.size() - 2);
        return {body, 5, body.substr(0, body.find(' ')), {}, {}};
    }
    void HandleIncoming(
        std::int16_t socket, const std::string& body, double number, const std::string& first_word) override
    {
        net.notes.push_back(
            "handle " + std::to_string(socket) + " " + body + " " + qz::decimal(number) + " " + first_word);
    }

    void send(const std::string& bytes)
    {
        peer->send(bytes);
        net.loop.run_pending();
    }
    void log_on(const std::string& name, const std::string& session, std::int16_t socket = 1)
    {
        net.connections.fill(name, session, socket, "192.0.2.10", net.clock.now());
    }
    /// Keyword and body of every message that came.
    Texts take_messages()
    {
        Texts messages;
        for (const auto& unit : peer->take_units()) {
            const auto text = std::string(qz::helpers::parse_frame(unit).value().chunk);
            const auto at = text.find("\r\n") + 2;
            messages.push_back(text.substr(at, text.size() - at - 1));
        }
        return messages;
    }

    TestNet net;
    std::optional<qz::test::MemoryPeer> peer;
    qz::net::UnitReader units{net.chunks, *this, net.deployment, net.clock, net.journal};
    qz::net::Receiver receiver{
        net.connections, units, net.sender, net.closer, net.parser, {*this, net}, net.journal};
};

} // namespace

TEST_F(ReceiverTest, ChecksWhoSends)
{
    const struct {
        const char* message;
        bool on_line;
        bool passes;
    } cases[] = {
        {"logon screenname=x", false, true},
        {"lastversion", false, true},
        {"chunkreceived", false, true},
        {"Logon screenname=x", false, false},
        {"msg sessionidvalue=77", false, false},
        {"logonx", false, false},
        {" logon", false, false},
        {"echo sessionidvalue=77", true, true},
        {"logon sessionidvalue=77", true, true},
        {"echo sessionidvalue=7", true, false},
        {"echo sessionidvalue=778", true, false},
        {"echo sessionidvalue= 77", true, false},
        {"echo", true, false},
        {"chunkreceived", true, false},
        {"logon screenname=x", true, false},
        {"echo msg=sessionidvalue=77", true, false},
        {"echo msg=a sessionidvalue=77", true, false},
        {"echo sessionidvalue=78 sessionidvalue=77", true, false},
    };
    for (const auto& each : cases) {
        const auto socket = peer->number();
        if (each.on_line) {
            log_on("ann", "77", socket);
        }
        send("\x02" + std::string(each.message) + "\x03");
        const std::string message = each.message;
        if (each.passes) {
            EXPECT_THAT(net.take_notes(),
                ElementsAre("handle " + std::to_string(socket) + " " + message + " 5 "
                        + message.substr(0, message.find(' ')),
                    "in"));
            net.closer.SocketClosing(socket);
        } else {
            const auto notes = net.take_notes();
            EXPECT_EQ(Texts(notes.begin(), notes.begin() + 2), Texts(2, "out")) << message;
            EXPECT_EQ(notes.size(), each.on_line ? 3U : 2U) << message;
            EXPECT_THAT(take_messages(),
                ElementsAre("logon You are not authorized to use this server. Please log on again!",
                    "logon answer=no"));
        }
        net.loop.run_pending();
        EXPECT_TRUE(peer->ended());
        EXPECT_EQ(net.connections.count_on_line(), 0);
        net.clock.advance(std::chrono::seconds(61));
        peer = net.client();
        peer->take();
        net.notes.clear();
    }
    EXPECT_THAT(net.journal.failures, IsEmpty());
}

TEST_F(ReceiverTest, TheLastRecordOfASocketHoldsItsSession)
{
    log_on("ann", "1");
    log_on("ann", "2");
    send("\x02"
         "echo sessionidvalue=2\x03");
    EXPECT_EQ(net.take_notes().size(), 2U);
    send("\x02"
         "echo sessionidvalue=1\x03");
    EXPECT_TRUE(peer->ended());
}

TEST_F(ReceiverTest, WaitsForAWholeMessage)
{
    send(write_frame({1, 9, 2, 2}, "on\x03"));
    send("\x01nonsense\x04" + write_frame({1, 8, 3, 2}, "x"));
    EXPECT_THAT(net.notes, IsEmpty());
    EXPECT_EQ(net.journal.failures.size(), 2U);
    send("\x02"
         "lastversion\x03"); // in between
    send(write_frame({2, 9, 1, 2}, "\x02log"));
    EXPECT_THAT(net.take_notes(),
        ElementsAre("handle 1 lastversion 5 lastversion", "in", "handle 1 logon 5 logon", "in"));
    EXPECT_EQ(net.chunks.size(), 0U);
}

TEST_F(ReceiverTest, IgnoresAnEmptyBody)
{
    send("\x02\x03" + write_frame({1, 1, 1, 1}, "\x02\x03"));
    EXPECT_THAT(net.notes, IsEmpty());
    EXPECT_FALSE(peer->ended());
}

TEST_F(ReceiverTest, AClosedConnectionIsReleasedOnce)
{
    log_on("ann", "1");
    log_on("bert", "2");
    auto other = net.client();
    log_on("carl", "3", other.number());
    send(write_frame({1, 9, 1, 2}, "half"));
    net.notes.clear();
    net.clock.advance(std::chrono::seconds(5));
    peer->vanish();
    net.loop.run_pending();
    EXPECT_THAT(net.take_notes(), ElementsAre("released bert 192.0.2.10 1")) << "the last one's name";
    EXPECT_EQ(net.chunks.size(), 0U);
    const auto& record = net.connections.records()[0];
    EXPECT_EQ(record.Status, 1);
    EXPECT_EQ(record.ChangeTime, net.clock.now());
    EXPECT_EQ(record.UserName + record.RemoteIP + record.SessionID, "");
    net.closer.SocketClosing(1);
    net.closer.SocketClosing(99);
    EXPECT_THAT(net.notes, IsEmpty());
    EXPECT_EQ(net.connections.count_on_line(), 1);
}

TEST_F(ReceiverTest, ClosesInTableOrderAndWhatHasGone)
{
    auto second = net.client();
    auto third = net.client();
    log_on("carl", "3", third.number());
    log_on("ann", "1", 1);
    log_on("dora", "4", 9); // never connected
    log_on("bert", "2", second.number());
    net.notes.clear();
    net.closer.CheckConnectionUp();
    EXPECT_THAT(net.take_notes(), ElementsAre("released dora  9"));
    net.closer.close_all();
    EXPECT_THAT(net.take_notes(),
        ElementsAre("released carl 192.0.2.10 3", "released ann 192.0.2.10 1", "released bert 192.0.2.10 2"));
    net.loop.run_pending();
    EXPECT_TRUE(second.ended());
    EXPECT_EQ(net.connections.count_on_line(), 0);
}
