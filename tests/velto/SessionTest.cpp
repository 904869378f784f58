#include "velto/Session.h"

#include "base/Text.h"
#include "support/ManualClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using namespace qz::client;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using velto::Line;

namespace {

/// A session whose server the test plays. Lines that are shown and requests that are sent become texts.
class SessionTest : public testing::Test, public velto::View, public velto::Link {
protected:
    SessionTest() { session.attach(*this); }

    void log_on()
    {
        connected = true;
        session.logged_on();
        take_sent();
        take_shown();
    }
    void lose(End end = End::Closed, const std::string& notice = {})
    {
        connected = false;
        Disconnected lost{end, "Gone.", notice, {}};
        session.disconnected(lost);
    }
    /// The server answers the oldest echo.
    void echo() { session.incoming(Echo{}); }
    std::vector<std::string> take_sent() { return std::exchange(sent, {}); }
    std::vector<std::string> take_shown() { return std::exchange(shown, {}); }

    void show(const Line& line) override
    {
        const auto text = render(line, velto::Colour::Off);
        shown.push_back(text.substr(text.find(' ') + 1));
    }
    bool is_logged_on() const override { return connected; }
    SendResult send(const Request& request) override
    {
        if (!connected) {
            return SendResult::NotLoggedOn;
        }
        std::string text = request.keyword;
        for (const auto& [key, value] : request.fields) {
            text += " " + key + "=" + value;
        }
        if (text != "echo") {
            sent.push_back(text);
        }
        return SendResult::Sent;
    }
    ClientCore::SentMessage send_message(const OutgoingMessage& message) override
    {
        if (idle || room_left == 0) {
            return {idle ? SendResult::NotLoggedOn : SendResult::OutputFull};
        }
        --room_left;
        sent.push_back(message.to + "|" + message.text + (message.receipt_requested ? "|receipt" : "")
            + (message.expires ? "|" + message.expires->text() : ""));
        return {SendResult::Sent, ++last_id};
    }
    void start() override { ++starts; }
    void stop() override { ++stops; }

    qz::test::ManualClock clock;
    velto::Session session{"ada", clock, *this};
    bool connected = false;
    bool idle = false;    // then the connection takes no messages
    int room_left = 1000; // messages that the connection still takes
    MessageId last_id = 100;
    int starts = 0;
    int stops = 0;
    std::vector<std::string> sent;
    std::vector<std::string> shown;
};

} // namespace

TEST_F(SessionTest, WhatIsWrittenGoesToThePartnerAndReceiptsAreShownOnce)
{
    log_on();
    session.enter("to whom?");
    EXPECT_THAT(take_sent(), IsEmpty());
    session.enter("/msg ben Hello  there ");
    session.enter(" plain /text");
    session.enter("//slash");
    session.enter("   ");
    EXPECT_THAT(take_sent(),
        ElementsAre("ben|Hello  there|receipt", "ben| plain /text|receipt", "ben|/slash|receipt"));
    take_shown();
    session.incoming(Receipt{102, "ben"});
    session.incoming(Receipt{102, "ben"});
    session.incoming(Receipt{999, "ben"}); // of another client's message
    EXPECT_THAT(take_shown(), ElementsAre("✓ ben has:  plain /text"));
    session.enter("/expire 90");
    session.enter("/msg \"Van Gogh\" hi");
    EXPECT_THAT(take_sent(), ElementsAre("Van Gogh|hi|receipt|2026-03-02 10:30:00"));
}

TEST_F(SessionTest, NothingWrittenIsLostAndTheOrderStays)
{
    log_on();
    session.enter("/msg ben one");
    session.settled(last_id);
    session.enter("two");
    const auto second = last_id;
    room_left = 1;
    session.enter("three");
    session.enter("four"); // the connection has no room for it
    EXPECT_THAT(take_sent(), ElementsAre("ben|one|receipt", "ben|two|receipt", "ben|three|receipt"));
    lose();
    idle = true; // nobody tries to connect again: the library takes nothing
    session.enter("/msg cleo five");
    session.settled(second);
    take_shown();
    session.show_unsent();
    EXPECT_THAT(take_shown(),
        ElementsAre("!! Not sent to ben: three", "!! Not sent to ben: four", "!! Not sent to cleo: five"));
    room_left = 1;
    idle = false;
    log_on();
    EXPECT_EQ(room_left, 0);
    room_left = 1;
    session.tick();
    EXPECT_THAT(take_sent(), ElementsAre("cleo|five|receipt"));
    for (auto id = second + 1; id <= last_id; ++id) {
        EXPECT_TRUE(session.has_unsent());
        EXPECT_FALSE(session.is_settled());
        session.settled(id);
    }
    EXPECT_TRUE(session.is_settled());
}

TEST_F(SessionTest, ACommandBecomesItsRequest)
{
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"/join reading room", {"room action=join roomname=reading room"}},
        {"/join #tea", {"room action=join roomname=tea"}},
        {"/leave tea", {"room action=leave roomname=tea"}},
        {"/rooms", {"roomlist"}},
        {"/guests #tea", {"room action=guest roomname=tea"}},
        {"/create my attic", {"room action=createnew roomname=my attic encryptionkey="}},
        {"/delete attic", {"room action=delete roomname=attic"}},
        {"/who", {"activeusers"}},
        {"/buddies", {"allbuddies"}},
        {"/add \"van gogh\" My Friends", {"addbuddy newbuddy=van gogh group=My Friends", "allbuddies"}},
        {"/remove ben", {"deletebuddy screenname2delete=ben", "allbuddies"}},
        {"/find van G", {"findbuddy screennametofind=van G"}},
        {"/whereis ben", {"whereisbuddy screennametofind=ben"}},
        {"/details ben", {"buddydetails action=get buddy=ben"}},
        {"/status out to lunch", {"status status=out to lunch"}},
        {"/autoreply", {"autoreply action=check"}},
        {"/autoreply on Back at 2", {"autoreply action=update status=True message=Back at 2"}},
        {"/autoreply off", {"autoreply action=update status=False message="}},
    };
    log_on();
    for (const auto& [line, requests] : cases) {
        session.enter(line);
        EXPECT_EQ(take_sent(), requests) << line;
        EXPECT_THAT(take_shown(), testing::Each(testing::Not(HasSubstr("!!")))) << line;
    }
    for (const auto* const line : {"/", "/nope", "/join", "/msg", "/leave", "/autoreply on",
             "/autoreply maybe", "/expire never", "/expire 0", "/expire 99999999"}) {
        session.enter(line);
        EXPECT_THAT(take_sent(), IsEmpty()) << line;
        EXPECT_THAT(take_shown(), ElementsAre(HasSubstr("!!"))) << line;
    }
    connected = false;
    session.enter("/rooms");
    EXPECT_THAT(take_shown(), ElementsAre("!! Not done: Not logged on."));
}

TEST_F(SessionTest, AnAnswerBelongsToItsQuestionAlsoWhenOneIsMissing)
{
    log_on();
    session.enter("/whereis ben");
    session.enter("/find ben");
    session.enter("/rooms");
    session.incoming(RoomList{{{"lobby", "root", 1}}}); // nobody has asked for this one yet
    echo();
    session.incoming(FoundUsers{{{"ben", "Ben", "Berg"}}});
    session.incoming(PresenceChange{{"cleo", "online"}});
    echo();
    echo();
    EXPECT_THAT(take_shown(),
        ElementsAre("* ben is in no room", "* ben: Ben Berg", "* cleo is online",
            "* There are no rooms. /create makes one."));
    session.enter("/rooms");
    session.incoming(CutOff{17});
    echo();
    EXPECT_THAT(take_shown(), ElementsAre("!! The answer is longer than the server can send."));
    session.enter("/buddies");
    lose();
    log_on();
    session.enter("/who");
    echo();
    EXPECT_THAT(take_shown(), ElementsAre("* Nobody is on line."))
        << "the question of the lost connection is forgotten";
}

TEST_F(SessionTest, ARoomIsEnteredAgainAfterAReconnection)
{
    log_on();
    session.enter("/join tea");
    echo(); // no answer: there is no such room, or one is in it
    session.incoming(RoomReply{RoomReply::Action::WhereIAm, {}, {}, {"attic"}, {}});
    echo();
    EXPECT_EQ(session.partner(), "") << "there is no such room";
    session.enter("/join tea");
    session.incoming(RoomReply{RoomReply::Action::Joined, "ada", "tea", {}, {}});
    echo();
    echo();
    EXPECT_EQ(session.partner(), "#tea");
    session.enter("Milk?");
    EXPECT_EQ(take_sent().back(), "#tea|Milk?") << "a room gives no receipts";
    lose();
    connected = true;
    session.logged_on();
    EXPECT_THAT(take_sent(), testing::Contains("room action=join roomname=tea"));
}

TEST_F(SessionTest, TypingIsToldNowAndThenAndShownForAWhile)
{
    log_on();
    session.talk_to("ben");
    for (const auto* const line : {"/m", "/ms", "H", "He", "He", "Hel"}) {
        session.typed(line);
    }
    EXPECT_THAT(take_sent(), ElementsAre("typing screennameto=ben"));
    clock.advance(10s);
    session.typed("Hel");
    EXPECT_THAT(take_sent(), IsEmpty()) << "nothing was typed meanwhile";
    session.typed("Hell");
    EXPECT_THAT(take_sent(), ElementsAre("typing screennameto=ben"));
    session.talk_to("#tea");
    clock.advance(10s);
    session.typed("Hello");
    EXPECT_THAT(take_sent(), IsEmpty()) << "rooms are not told";

    session.incoming(Typing{"b\x1b[31men"});
    EXPECT_EQ(session.prompt(), "[b[31men is typing] #tea> ");
    clock.advance(6s);
    ASSERT_TRUE(session.next_deadline() && *session.next_deadline() <= clock.steady());
    session.tick();
    EXPECT_EQ(session.prompt(), "#tea> ");
}

TEST_F(SessionTest, WhoWasThrownOffStaysOff)
{
    const std::pair<std::string, int> cases[] = {
        {"Somebody from 192.0.2.77 is using this screen name ada and forced you logout immediatly", 1},
        {"You have been logged off from the VELTO server", 1},
        {"VELTOServer is shutting down, please reconnect in a few of minutes", 0},
        {"", 0},
    };
    for (const auto& [notice, stopped] : cases) {
        stops = 0;
        log_on();
        lose(End::Closed, notice);
        EXPECT_EQ(stops, stopped) << notice;
        EXPECT_EQ(take_shown().size(), 1U);
        EXPECT_FALSE(session.is_over());
    }
    session.enter("/connect");
    EXPECT_EQ(starts, 1);
}

TEST_F(SessionTest, AFirstLogonThatFailsEndsIt)
{
    session.refused({"Your account is disabled!"});
    ASSERT_TRUE(session.is_over() && session.failure());
    EXPECT_TRUE(session.failure()->refused);
    EXPECT_THAT(session.failure()->text, HasSubstr("Your account is disabled!"));

    velto::Session other("ada", clock, *this);
    other.attach(*this);
    other.disconnected({End::Unreachable, "Cannot connect.", {}, clock.steady()});
    ASSERT_TRUE(other.is_over() && other.failure());
    EXPECT_FALSE(other.failure()->refused);
}
