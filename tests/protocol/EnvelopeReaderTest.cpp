#include "protocol/EnvelopeReader.h"

#include "base/EngineError.h"
#include "helpers/ServerCommandNames.h"
#include "platform/sodium/SodiumCrypto.h"

#include <gtest/gtest.h>

#include <string>

using namespace std::string_literals;

namespace {

class EnvelopeReaderTest : public testing::Test {
protected:
    qz::net::Envelope read(const std::string& data) { return reader.CheckMsgIncomingRules(data); }
    int failure(const std::string& data)
    {
        try {
            read(data);
            return 0;
        } catch (const qz::EngineError& error) {
            return error.number();
        }
    }

    qz::platform::SodiumCrypto crypto;
    qz::helpers::MessageParser parser{crypto};
    qz::protocol::EnvelopeReader reader{parser};
};

const std::string kLargest(32767 - 8, 'x');

} // namespace

TEST_F(EnvelopeReaderTest, TakesEnvelopesApart)
{
    const struct {
        std::string data, body;
        double number = 0;
        std::string first_word{}, rest{}, my_ip{};
    } cases[] = {
        {"\x02\x0E"
         "12\x0F\r\nmsg a=b c\x03",
            "msg a=b c", 12, "msg", "a=b c", ""},
        {"\x02\x0E"
         "12\x0F\r\necho \x03",
            "echo ", 12, "echo", "", ""},
        {"before\x03\x02\x0E-7.5x\x0F\xC3\xA9\xC3\xA9"
         "echo a\x03"
         "after\x03",
            "echo a", -7.5, "echo", "a", ""},
        {"\x02 noise \x0E\x0F\r\nx \x03", "x ", 0, "x", "", ""},
        {"\x02\x0E"
         "nan\x0F\r\nx \x03",
            "x ", 0, "x", "", ""},
        {"\x02\x0E"
         "1e999\x0F\r\nx \x03",
            "x ", 0, "x", "", ""},
        {"\x02\x0E"
         "9007199254740991\x0F\r\nx \x03",
            "x ", 9007199254740991, "x", "", ""},
        {"\x02\x0E"
         "1\x0F\r\n a\x03",
            " a", 1, "", "a", ""},
        {"\x02\x0E"
         "1\x0F\r\nlogon a=b myIP=10.0.0.1\x03",
            "logon a=b ", 1, "logon", "a=b myIP=10.0.0.1", "10.0.0.1"},
        {"\x02\x0E"
         "1\x0F\r\nmsg myIP=10.0.0.1 msg=my myIP=10.0.0.1 myip=10.0.0.1\x03",
            "msg  msg=my  myip=10.0.0.1", 1, "msg", "myIP=10.0.0.1 msg=my myIP=10.0.0.1 myip=10.0.0.1",
            "10.0.0.1"},
        {"\x02\x0E"
         "1\x0F\r\nmsg myIP= msg=a\x03",
            "msg  msg=a", 1, "msg", "myIP= msg=a", ""},
        {"\0\x02\x0E"
         "1\x0F\r\nec\0ho \x03"s,
            "ec\0ho "s, 1, "ec\0ho"s, "", ""},
        // As long as the positions reach.
        {"\x02\x0E"
         "1\x0F\r\n"
                + kLargest + " \x03",
            kLargest + " ", 1, kLargest, "", ""},
    };
    for (const auto& each : cases) {
        const auto envelope = read(each.data);
        EXPECT_EQ(envelope.body, each.body) << each.data;
        EXPECT_EQ(envelope.number, each.number) << each.data;
        EXPECT_EQ(envelope.first_word, each.first_word) << each.data;
        EXPECT_EQ(envelope.rest, each.rest) << each.data;
        EXPECT_EQ(envelope.my_ip, each.my_ip) << each.data;
    }
}

TEST_F(EnvelopeReaderTest, RefusesWhatIsNoEnvelope)
{
    const std::string cases[] = {
        "",
        "plain text",
        "\x02\x03",
        // Markers that are missing or in a wrong order.
        "\x02\x0E"
        "1\x0F\r\necho ",
        "\x0E"
        "1\x0F\r\necho \x03",
        "\x02\x0E"
        "1\r\necho \x03\x0F",
        "\x02"
        "1\x0F\r\necho \x03",
        "\x03\x0F\x0E\x02 ",
        "\x02\x0F"
        "1\x0E\r\necho \x03",
        // No blank in the body.
        "\x02\x0E"
        "1\x0F\r\necho\x03 ",
        "\x02 \x0E"
        "1\x0F\r\nx\x03",
        "\x02\x0E"
        "1\x0Fx\x03",
        "\x02\x0E"
        "1\x0F\x03",
    };
    for (const auto& data : cases) {
        EXPECT_EQ(failure(data), 5) << data;
    }
}

TEST_F(EnvelopeReaderTest, PositionsAre16BitsWide)
{
    const auto start = "\x02\x0E"
                       "1\x0F\r\n\xC3\xA9 "s;
    const auto largest = kLargest.substr(1);
    EXPECT_EQ(read(start + largest + "\x03").body.size(), largest.size() + 3) << "characters, not bytes";
    EXPECT_EQ(failure(start + largest + "x\x03"), 6);
}

TEST_F(EnvelopeReaderTest, ReadsWhatTheServerComposes)
{
    const auto envelope = read(qz::helpers::server_command_names().compose("notice",
        "a\x03\x02\x0E"
        "9\x0F\r\nmsg b",
        77));
    EXPECT_EQ(envelope.number, 77);
    EXPECT_EQ(envelope.first_word, "notice");
    const std::string mark = "\xEF\xBF\xBD";
    EXPECT_EQ(envelope.rest, "a" + mark + mark + mark + "9" + mark + "\r\nmsg b");
}
