#include "client/ClientCore.h"

#include "client/Conversation.h"
#include "helpers/Frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace qz::client;
using qz::test::Conversation;
using qz::test::from_server;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const std::string kMessage = "msg screennamefrom=bob screennameto=ann receiptrequested=False msg=hi";
const std::string kShown = "message|9|bob||ann|1899-12-30 00:00:00|1899-12-30 00:00:00|no|hi";

/// Name, password and session of a logon as the server reads them from a client at this address.
std::string credentials(const std::string& logon, std::string_view address)
{
    return qz::test::read_credential(read_value(logon, "screenname"), address) + "/"
        + qz::test::read_credential(read_value(logon, "password"), address) + "/"
        + read_value(logon, "sessionidvalue");
}

struct Step {
    enum Who { Server, Client, Event } who;
    std::string text; // for Client and Event: what has come since, joined with " + "
};

std::string join(const std::vector<std::string>& texts)
{
    std::string all;
    for (const auto& text : texts) {
        all += all.empty() ? text : " + " + text;
    }
    return all;
}

} // namespace

TEST(ClientCore, ConversationsAsScripted)
{
    using enum Step::Who;
    const std::vector<Step> scripts[] = {
        // A message is shown once and confirmed each time; an echo tells that the server has heard it.
        {{Server, kMessage}, {Event, kShown},
            {Client, "receipt sessionidvalue=42 msgid=9 + echo sessionidvalue=42"}, {Server, kMessage},
            {Event, ""}, {Client, "receipt sessionidvalue=42 msgid=9"}, {Server, "echo "},
            {Client, "echo sessionidvalue=42"}, {Server, "echo "}, {Client, ""}, {Event, ""}},
        {{Server, "notice Bye"}, {Event, "notice|Bye"}, {Server, "logon answer=no"},
            {Event, "disconnected|session lost|Bye|again"}},
        {{Server, "logon You are not authorized to use this server. Please log on again!"},
            {Server, "logon answer=no"},
            {Event,
                "notice|You are not authorized to use this server. Please log on again! + disconnected|"
                "session lost|You are not authorized to use this server. Please log on again!|again"}},
        // What belongs to the way there has no effect any more.
        {{Server, "session sessionidvalue=43"}, {Server, "logon answer=accepted"}, {Client, ""}, {Event, ""}},
        {{Server, "echo "}, {Event, "echo"}},
        {{Server, "weather sky=blue"}, {Event, "unknown|weather|sky=blue"}},
    };
    for (const auto& script : scripts) {
        Conversation talk;
        talk.log_on();
        for (std::size_t i = 0; i < script.size(); ++i) {
            const auto& [who, text] = script[i];
            SCOPED_TRACE("step " + std::to_string(i) + ": " + text);
            if (who == Server) {
                talk.server(text, 9);
            } else {
                EXPECT_EQ(join(who == Client ? talk.client() : talk.events.take()), text);
            }
        }
    }
}

TEST(ClientCore, LogsOnWithCredentialsForTheServersEyes)
{
    using qz::helpers::CredentialForm;
    struct {
        std::string address;
        CredentialForm form;
        char letter;
    } const cases[] = {{"10.0.0.7", CredentialForm::Address, 'a'}, {"10.0.0.7", CredentialForm::Plain, 'p'},
        {"::1", CredentialForm::Address, 'a'}, {"127.0.0.1", CredentialForm::Address, 'p'}};
    for (const auto& each : cases) {
        Conversation talk({"Ann", "pass word=é"s, each.form}, each.address);
        talk.open();
        EXPECT_THAT(talk.client(), IsEmpty()) << "the server speaks first";
        talk.server("session sessionidvalue=42");
        const auto logon = talk.client();
        ASSERT_EQ(logon.size(), 1U);
        EXPECT_THAT(logon[0], StartsWith("logon screenname={v1}"s + each.letter));
        EXPECT_EQ(credentials(logon[0], each.address), "Ann/pass word=é/42");
        EXPECT_EQ(talk.core.send(requests::echo()), SendResult::NotLoggedOn);
        talk.server("logon answer=accepted");
        EXPECT_THAT(talk.events.take(), ElementsAre("connected", "logged on"));
    }
}

TEST(ClientCore, RefusalsStopItWithTheirReasons)
{
    Conversation talk;
    talk.open();
    talk.server("session sessionidvalue=42");
    talk.server("notice Your account is disabled!");
    talk.server("logon answer=no");
    EXPECT_THAT(talk.events.take(),
        ElementsAre("connected", "notice|Your account is disabled!", "refused|Your account is disabled!",
            "disconnected|refused|Your account is disabled!|for good"));
    talk.pass(24h);
    EXPECT_EQ(talk.core.attempt(), 0U) << "the same credentials would be refused again";
    EXPECT_EQ(talk.core.next_deadline(), std::nullopt);
}

TEST(ClientCore, AnUnansweredLogonIsARefusalOnlyAtFirst)
{
    Conversation talk;
    talk.open();
    talk.server("session sessionidvalue=42");
    talk.pass(29999ms);
    EXPECT_THAT(talk.events.take(), ElementsAre("connected"));
    talk.pass(1ms);
    EXPECT_THAT(talk.events.take(), ElementsAre("refused|", "disconnected|refused||for good"));

    talk.log_on();
    talk.core.closed("gone", talk.now);
    talk.pass(60s);
    talk.core.opened("10.0.0.7", talk.now);
    talk.server("session sessionidvalue=43");
    talk.pass(30s);
    EXPECT_EQ(talk.events.take().back(), "disconnected|no answer||again") << "the name is known to be good";
}

TEST(ClientCore, BytesMaySplitAnywhere)
{
    const auto bytes = "junk" + from_server("session sessionidvalue=42")
        + from_server("logon answer=accepted")
        + from_server("msg screennamefrom=bob screennameto=ann msg=" + std::string(5000, 'x') + "é", 8)
        + "junk" + from_server("typing screennamefrom=bob")
        + "\x02\x0E"
          "5\x0F\r\necho \x03";
    std::vector<std::string> expected;
    for (const std::size_t step : {bytes.size(), std::size_t{1}, std::size_t{7}, std::size_t{2049}}) {
        Conversation talk;
        talk.open();
        for (std::size_t at = 0; at < bytes.size(); at += step) {
            talk.core.received(std::string_view(bytes).substr(at, step), talk.now);
        }
        const auto lines = talk.events.take();
        if (expected.empty()) {
            expected = lines;
            EXPECT_EQ(lines.size(), 4U)
                << "connected, logged on, message, typing; the echo was the client's own";
        }
        EXPECT_EQ(lines, expected) << "pieces of " << step;
    }
}

TEST(ClientCore, TellsOnceOfAnAnswerThatTheServerCannotSendWhole)
{
    Conversation talk;
    talk.log_on();
    for (int index = 1; index <= 16; ++index) {
        talk.core.received(qz::helpers::write_frame({index, 1, index, 17}, "x"), talk.now);
    }
    EXPECT_THAT(talk.events.take(), ElementsAre("cut off|17"));
}

TEST(ClientCore, HostileBytesDoNoHarm)
{
    Conversation talk;
    talk.log_on();
    const auto frame = [](int index, int count, const std::string& text) {
        return qz::helpers::write_frame({1, 1, index, count}, text);
    };
    for (const auto& bytes : {"\x01\x04"s, "\x02\x03"s, "\x01\x11x\x04"s, frame(2, 1, "x"), frame(2, 17, "x"),
             frame(1, 1, ""), frame(1, 1, "\x02no number\x03"), "\xFF\xFE\x02\xFF\x03"s}) {
        talk.core.received(bytes, talk.now);
    }
    EXPECT_THAT(talk.events.take(), IsEmpty());
    EXPECT_TRUE(talk.core.is_logged_on());
    talk.core.received("\x02" + std::string(16'384, 'x'), talk.now);
    EXPECT_THAT(talk.events.take(), ElementsAre("disconnected|oversized||again"));

    Conversation other;
    other.open();
    other.server("session sessionidvalue=" + std::string(65, '1'));
    other.server("session sessionidvalue=4 2");
    other.server(kMessage);
    EXPECT_THAT(other.client(), IsEmpty()) << "no sensible session, and nobody to deliver to";
}

TEST(ClientCore, ConfirmationsSurviveTheConnection)
{
    Conversation talk;
    talk.log_on();
    talk.server(kMessage, 9);
    talk.server(kMessage, 10); // neither confirmation is known to have arrived
    talk.core.closed("gone", talk.now);
    EXPECT_EQ(talk.core.unconfirmed(), 2U);
    talk.pass(60s);
    talk.core.opened("10.0.0.7", talk.now);
    talk.server("session sessionidvalue=43");
    talk.client();
    talk.events.take();
    talk.server("logon answer=accepted");
    EXPECT_THAT(talk.client(),
        ElementsAre("receipt sessionidvalue=43 msgid=9", "receipt sessionidvalue=43 msgid=10",
            "echo sessionidvalue=43"));
    talk.server(kMessage, 9); // the server sends it again
    EXPECT_THAT(talk.events.take(), ElementsAre("logged on"));
    talk.server("echo ");
    EXPECT_EQ(talk.core.unconfirmed(), 1U) << "the repeated one, sent after that echo";
    talk.server("echo ");
    EXPECT_EQ(talk.core.unconfirmed(), 0U);
}

TEST(ClientCore, LeavesMessagesWithTheServerWhenNobodyReads)
{
    Conversation talk;
    talk.log_on();
    talk.server(kMessage, 9);
    talk.core.confirm_messages(false);
    talk.server(kMessage, 10);
    EXPECT_EQ(talk.events.take().size(), 2U) << "it is told all the same";
    EXPECT_THAT(talk.client(), ElementsAre("receipt sessionidvalue=42 msgid=9", "echo sessionidvalue=42"))
        << "what was owed before is still confirmed";
}

TEST(ClientCore, OwnMessagesAreSentUntilTheServerHasThem)
{
    Conversation talk;
    talk.log_on();
    const auto first = talk.core.deliver_message({"bob", "one"}).id;
    const auto second = talk.core.deliver_message({"bob", "two"}).id;
    EXPECT_THAT(talk.client(),
        ElementsAre("msg sessionidvalue=42 screennamefrom=ann screennameto=bob msg=one",
            "echo sessionidvalue=42", "msg sessionidvalue=42 screennamefrom=ann screennameto=bob msg=two"));
    talk.server("echo ");
    EXPECT_THAT(talk.events.settled_messages, ElementsAre(first)) << "the second was sent after that echo";
    talk.core.closed("gone", talk.now);
    const auto third = talk.core.deliver_message({"bob", "three"}); // between two connections
    EXPECT_EQ(third.result, SendResult::Sent);
    talk.pass(60s);
    talk.core.opened("10.0.0.7", talk.now);
    talk.server("session sessionidvalue=43");
    talk.client();
    talk.server("logon answer=accepted");
    EXPECT_NE(talk.core.output().find("\x0E" + std::to_string(second) + "\x0F"), std::string_view::npos)
        << "with the same number";
    EXPECT_THAT(talk.client(),
        ElementsAre("msg sessionidvalue=43 screennamefrom=ann screennameto=bob msg=two",
            "msg sessionidvalue=43 screennamefrom=ann screennameto=bob msg=three", "echo sessionidvalue=43"));
    talk.server("echo ");
    EXPECT_THAT(talk.events.settled_messages, ElementsAre(first, second, third.id));
    EXPECT_EQ(talk.core.unsettled(), 0U);
}

TEST(ClientCore, ReconnectsAtTheTimeItNames)
{
    Conversation talk;
    talk.core.start(talk.now);
    const auto first = talk.core.attempt();
    EXPECT_NE(first, 0U);
    talk.core.closed("no route", talk.now);
    EXPECT_THAT(talk.events.take(), ElementsAre("disconnected|unreachable||again"));
    const auto next = talk.events.last_end.next_attempt.value();
    EXPECT_LE(next - talk.now, 1s);
    EXPECT_EQ(talk.core.next_deadline(), next);
    talk.now = next - 1ms;
    talk.pass(0ms);
    EXPECT_EQ(talk.core.attempt(), 0U);
    talk.pass(1ms);
    EXPECT_GT(talk.core.attempt(), first);
    talk.core.stop();
    EXPECT_THAT(talk.events.take(), ElementsAre("disconnected|stopped||for good"));
    talk.core.stop();
    EXPECT_THAT(talk.events.take(), IsEmpty());
}

TEST(ClientCore, NoticesASilentServer)
{
    Conversation talk;
    talk.log_on();
    talk.pass(59s);
    EXPECT_THAT(talk.client(), IsEmpty());
    talk.pass(1s);
    EXPECT_THAT(talk.client(), ElementsAre("echo sessionidvalue=42"));
    talk.pass(29s);
    talk.server("typing screennamefrom=bob"); // alive, only slow
    talk.pass(29s);
    EXPECT_THAT(talk.events.take(), ElementsAre("typing|bob"));
    talk.pass(1s);
    EXPECT_THAT(talk.events.take(), ElementsAre("disconnected|no answer||again"));
}

TEST(ClientCore, MessagesThatCannotBeDeliveredAreErrors)
{
    Conversation talk;
    EXPECT_EQ(talk.core.send_message({"bob", "hi"}).result, SendResult::NotLoggedOn);
    talk.log_on();
    const struct {
        OutgoingMessage message;
        SendResult expected;
    } cases[] = {{{"", "hi"}, SendResult::NoRecipient}, {{" ", "hi"}, SendResult::NoRecipient},
        {{"#", "hi"}, SendResult::NoRecipient}, {{"bob", ""}, SendResult::NoText},
        {{"bob", "  "}, SendResult::NoText}, {{"bob", "hi"}, SendResult::Sent},
        {{"#lobby", "hi"}, SendResult::Sent}, {{"bob", std::string(32'700, 'x')}, SendResult::TooLong},
        {{"bob", std::string(32'768, 'x')}, SendResult::TooLong}};
    for (const auto& [message, expected] : cases) {
        const auto sent = talk.core.send_message(message);
        EXPECT_EQ(sent.result, expected) << message.to << ", " << message.text.size();
        EXPECT_EQ(sent.id != 0, expected == SendResult::Sent);
    }
    EXPECT_EQ(talk.core.send({"two words", {}, {}}), SendResult::NotTransmittable);
}

TEST(ClientCore, TheLongestTextFitsWhatTheServerMakesOfIt)
{
    Conversation talk;
    talk.log_on();
    std::size_t longest = 0;
    for (std::size_t low = 1, high = 40'000; low <= high;) {
        const auto middle = (low + high) / 2;
        const bool sent =
            talk.core.send_message({"bob", std::string(middle, 'x')}).result == SendResult::Sent;
        talk.client();
        (sent ? longest : high) = sent ? middle : middle - 1;
        low = sent ? middle + 1 : low;
    }
    const auto delivered = from_server("msg screennamefrom=ann screennameto=bob receivedtime=2026-03-02\x1F"
                                       "09:00:00 expirationtime=2026-03-02\x1F"
                                       "09:00:00 receiptrequested=False msg="
            + std::string(longest, 'x'),
        9007199254740991.0);
    qz::helpers::UnitCutter cutter;
    std::string_view bytes = delivered;
    const auto first = cutter.next_unit(bytes).value();
    EXPECT_EQ(qz::helpers::parse_frame(first)->header.chunk_count, 16);
    EXPECT_GT(longest, 32'500U);
}

TEST(ClientCore, OutputIsBounded)
{
    Conversation talk;
    talk.log_on();
    SendResult result = SendResult::Sent;
    for (int i = 0; i < 1000 && result == SendResult::Sent; ++i) {
        result = talk.core.send_message({"bob", std::string(10'000, 'x')}).result;
    }
    EXPECT_EQ(result, SendResult::OutputFull);
    for (int i = 0; i < 300; ++i) {
        talk.server(kMessage, 100 + i);
    }
    EXPECT_LE(talk.core.output().size(), Outbox::kMaxBytes);
    talk.client();
    talk.client(); // those that found no room went as soon as there was some
    EXPECT_EQ(talk.core.unconfirmed(), 300U);
    while (talk.core.unconfirmed() != 0) {
        talk.server("echo ");
        ASSERT_THAT(talk.events.lines, testing::Not(testing::Contains("echo"))) << "no echo is missing";
        talk.client();
    }
    for (int i = 0; i < 1000; ++i) {
        result = talk.core.send(requests::echo());
    }
    EXPECT_EQ(result, SendResult::OutputFull) << "the answers are counted too";
}

TEST(ClientCore, AListenerMayStopAndStartAnew)
{
    struct Restarting : qz::test::RecordingEvents {
        void incoming(const Incoming& incoming) override
        {
            RecordingEvents::incoming(incoming);
            core->stop();
            core->start(TimePoint{std::chrono::hours(2)});
        }
        ClientCore* core = nullptr;
    } events;
    qz::test::CountingCrypto crypto;
    ClientCore core({"ann", "secret"}, crypto, events);
    events.core = &core;
    core.start(TimePoint{});
    core.opened("10.0.0.7", TimePoint{});
    core.received(from_server("session sessionidvalue=42") + from_server("logon answer=accepted")
            + from_server(kMessage) + from_server("notice of the old connection"),
        TimePoint{});
    EXPECT_EQ(core.attempt(), 2U);
    EXPECT_THAT(
        events.take(), ElementsAre("connected", "logged on", testing::_, "disconnected|stopped||for good"));
}
