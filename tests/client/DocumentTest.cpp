// The examples of docs/protocol.md, held against the codec.
#include "client/Conversation.h"
#include "client/Incoming.h"
#include "helpers/Frame.h"
#include "helpers/MessageParser.h"
#include "helpers/ProtocolKeywords.h"
#include "helpers/ServerCommandNames.h"
#include "helpers/UnitCutter.h"
#include "platform/sodium/SodiumCrypto.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

using namespace std::string_literals;

namespace {

std::string document()
{
    std::ifstream file(VELTO_PROTOCOL_DOCUMENT);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The bytes behind the names of the control characters.
std::string bytes_of(std::string text)
{
    const std::pair<const char*, char> names[] = {{"SOH", 1}, {"STX", 2}, {"ETX", 3}, {"EOT", 4}, {"SO", 14},
        {"SI", 15}, {"DC1", 17}, {"DC2", 18}, {"DC3", 19}, {"DC4", 20}, {"US", 31}, {"CR", 13}, {"LF", 10}};
    for (const auto& [name, character] : names) {
        text = std::regex_replace(text, std::regex("<"s + name + ">"), std::string(1, character));
    }
    return text;
}

struct Example {
    bool from_server = false;
    std::string line;
    std::string bytes;
};

std::vector<Example> examples()
{
    std::vector<Example> all;
    std::istringstream lines(document());
    bool is_code = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("```")) {
            is_code = !is_code;
        } else if (is_code) {
            all.push_back({line.starts_with("S"), line, bytes_of(line.substr(3))});
        }
    }
    return all;
}

} // namespace

TEST(ProtocolDocument, ExamplesAreExactToTheByte)
{
    const auto all = examples();
    EXPECT_GE(all.size(), 80U);
    for (const auto& example : all) {
        SCOPED_TRACE(example.line);
        std::string_view bytes = example.bytes;
        qz::helpers::UnitCutter cutter;
        EXPECT_EQ(cutter.next_unit(bytes), example.bytes);
        const auto frame = qz::helpers::parse_frame(example.bytes);
        ASSERT_TRUE(frame);
        const auto envelope = qz::client::read_envelope(frame->chunk);
        ASSERT_TRUE(envelope);
        const auto again = qz::helpers::server_command_names().compose(
            envelope->keyword, envelope->body, static_cast<double>(envelope->number));
        EXPECT_EQ(qz::helpers::write_frame(frame->header, again), example.bytes);
        const auto& words = qz::helpers::protocol_keywords();
        if (!example.from_server) {
            EXPECT_NE(qz::client::read_value(envelope->body, "sessionidvalue"), "");
        } else if (envelope->keyword != words.SessionOffer && envelope->keyword != words.LogOn) {
            EXPECT_FALSE(std::holds_alternative<qz::client::Unknown>(qz::client::read_incoming(*envelope)));
        }
    }
}

TEST(ProtocolDocument, CredentialsOfTheExampleDecode)
{
    int logons = 0;
    for (const auto& example : examples()) {
        if (example.bytes.find("\nlogon screenname=") != std::string::npos) {
            const auto body = example.bytes.substr(example.bytes.find("screenname="));
            const auto decoded = [&](std::string_view key) {
                return qz::test::read_credential(qz::client::read_value(body, key), "192.0.2.10");
            };
            EXPECT_EQ(decoded("screenname"), "ann");
            EXPECT_EQ(decoded("password"), "s3cret");
            ++logons;
        }
    }
    EXPECT_EQ(logons, 1);
}

TEST(ProtocolDocument, ListsTheKeysThatTheServerKnows)
{
    const auto text = document();
    const auto start = text.find("Only these are keys:");
    const auto list = text.substr(start, text.find("\n- ", start) - start);
    qz::platform::SodiumCrypto crypto;
    const qz::helpers::MessageParser parser(crypto);
    const std::regex key("`([A-Za-z0-9]+)`");
    std::size_t keys = 0;
    for (auto each = std::sregex_iterator(list.begin(), list.end(), key); each != std::sregex_iterator{};
         ++each) {
        ++keys;
        EXPECT_EQ(parser.value("x=1 " + (*each)[1].str() + "=2", "x"), "1") << (*each)[1];
    }
    EXPECT_EQ(keys, 41U);
}
