#include "client/Incoming.h"

#include "client/Conversation.h"

#include <gtest/gtest.h>

using namespace std::string_literals;
using qz::client::read_envelope;
using qz::client::read_incoming;
using qz::test::show;

TEST(ReadIncoming, KnowsEveryReply)
{
    const auto blank = "\x1F"s;
    const std::pair<std::string, std::string> cases[] = {
        {"msg screennamefrom=bob screennameto=ann receivedtime=2026-03-02" + blank
                + "09:00:00 expirationtime=2026-03-03" + blank
                + "09:00:00 receiptrequested=True msg= a msgid=1 b ",
            "message|7|bob||ann|2026-03-02 09:00:00|2026-03-03 09:00:00|yes| a msgid=1 b "},
        {"msg screennamefrom=#Coffee" + blank + "Bar screennameto=ann receivedtime=x receiptrequested=False "
                + "roomsender=bob msg=hi",
            "message|7|bob|Coffee Bar|ann|1899-12-30 00:00:00|1899-12-30 00:00:00|no|hi"},
        {"receipt received=9007199254740991 screennameto=bob", "receipt|9007199254740991|bob"},
        {"typing screennamefrom=bob", "typing|bob"},
        {"status screenname=bob status=out to lunch", "presence|bob|out to lunch"},
        {"onlinebuddies bob online#carl out" + blank + "to" + blank + "lunch",
            "on line|bob=online|carl=out to lunch"},
        {"activeusers bob online#-", "active|bob=online|="},
        {"allbuddies bob My" + blank + "Friends offline#carl - online",
            "buddies|bob/My Friends/offline|carl//online"},
        {"findbuddy bob Bob -#carl Carl van" + blank + "Gogh one too many",
            "found|bob/Bob/|carl/Carl/van Gogh"},
        {"roomlist lobby ann 3##attic bob x#cellar", "rooms|lobby/ann/3|attic/bob/0|cellar//0"},
        {"whereisbuddy lobby#my" + blank + "attic", "where|lobby,my attic"},
        {"room action=joinok screenname=ann roomname=my attic", "room|joined|ann|my attic||"},
        {"room action=leaveok screenname=ann roomname=lobby", "room|left|ann|lobby||"},
        {"room action=guest roomname=my" + blank + "attic guests=ann#bob", "room|guests||my attic|ann,bob|"},
        {"room action=whereiam rooms=lobby#my" + blank + "attic", "room|where|||lobby,my attic|"},
        {"room action=createnew feedback=The room x has been created sucessfully",
            "room|created||||The room x has been created sucessfully"},
        {"room action=delete feedback=The room x doesn't exist", "room|deleted||||The room x doesn't exist"},
        {"autoreply action=get status=True message=back" + blank + "soon", "auto-reply|yes|back soon"},
        {"autoreply action=save answer=yes", "saved|yes"},
        {"autoreply action=save answer=no", "saved|no"},
        {"buddydetails action=get buddy=bob firstname= lastname=van" + blank
                + "Gogh email=b@x.org imclientinuse=1.2.3 group=My" + blank + "Friends comment= key=k",
            "details|bob||van Gogh|b@x.org|1.2.3|My Friends||k"},
        {"buddydetails buddy=bob action=updated", "updated|bob|yes|details"},
        {"buddykey buddy=bob action=notupdated", "updated|bob|no|key"},
        {"buddykey action=get buddy=bob key=a key", "key|bob|a key"},
        {"adminscreenname screenname=root", "administrator|root"},
        {"policyfiletransfer answer=accepted", "policy|0|yes"},
        {"policyscreenshot answer=no", "policy|1|no"},
        {"policyaolim answer=", "policy|2|no"},
        {"lastversion version=1.5.0 urlLastClientVersionAvailable=http://x/?a=1",
            "version|1.5.0|http://x/?a=1"},
        {"expirationtime expiration=1440", "expiration|1440"},
        {"remotecommand remotecommand=start" + blank + "it msg=now, key=x", "command|start it|now, key=x"},
        {"filetransfer action=request screennamefrom=bob screennameto=ann remoteip=10.0.0.8",
            "file|request|bob|ann|10.0.0.8"},
        {"screentransfer action=answer filetransfer=accepted screennamefrom=bob screennameto=ann "
         "remoteip=::1",
            "screen|accepted|bob|ann|::1"},
        {"filetransfer action=answer filetransfer=denied screennamefrom=b screennameto=a remoteip=1",
            "file|denied|b|a|1"},
        {"notice Your account is disabled!", "notice|Your account is disabled!"},
        {"echo ", "echo"},
    };
    for (const auto& [text, expected] : cases) {
        const auto blank_at = text.find(' ');
        const std::string_view view = text;
        EXPECT_EQ(show(read_incoming({7, view.substr(0, blank_at), view.substr(blank_at + 1)})), expected);
    }
}

TEST(ReadIncoming, ShowsRawWhatItCannotRead)
{
    const std::pair<std::string_view, std::string_view> cases[] = {{"weather", "sky=blue"}, {"", ""},
        {"MSG", "screennamefrom=bob msg=hi"}, {"msg", "msg=nobody wrote this"}, {"receipt", "received=0"},
        {"receipt", "received=9007199254740992"}, {"receipt", "received=-1"}, {"receipt", "received=1x"},
        {"room", "action=burn roomname=x"}, {"autoreply", "action="}, {"buddydetails", "buddy=bob"},
        {"expirationtime", "expiration=-5"}, {"expirationtime", "expiration=99999999999"},
        {"filetransfer", "action=answer filetransfer=perhaps"}};
    for (const auto& [keyword, body] : cases) {
        EXPECT_EQ(show(read_incoming({7, keyword, body})),
            "unknown|" + std::string(keyword) + "|" + std::string(body));
    }
}

TEST(ReadEnvelope, TakesOnlyWholeEnvelopes)
{
    const auto whole = "\x02\x0E"
                       "15\x0F\r\necho \x03"s;
    const auto envelope = read_envelope(whole);
    ASSERT_TRUE(envelope);
    EXPECT_EQ(envelope->number, 15U);
    EXPECT_EQ(envelope->keyword, "echo");
    EXPECT_EQ(envelope->body, "");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(read_envelope(whole.substr(0, length))) << length;
    }
    for (const auto* number :
        {"", "0", "-1", "1.5", "1e3", " 1", "9007199254740992", "99999999999999999999"}) {
        auto text = whole;
        EXPECT_FALSE(read_envelope(text.replace(2, 2, number))) << number;
    }
}
