// Instant messages, typing notices and confirmations, as clients, the tables and the log see them.
#include "protocol/MessageRequests.h"

#include "support/Conversation.h"
#include "support/Talk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Texts = std::vector<std::string>;

namespace {

/// "_" stands for BlankSubstitute, which reads badly in a literal.
std::string wire(std::string text)
{
    std::replace(text.begin(), text.end(), '_', '\x1F');
    return text;
}

/// The engine's clock stands at 9 o'clock on 2 March 2026, and messages last 90 minutes.
class MessageRequestsTest : public testing::Test {
protected:
    MessageRequestsTest()
    {
        // The table of room members is as large as the table of users.
        for (const auto* name : {"ann", "bob", "carl", "dora", "mary ann", "o'neil"}) {
            talk->add_user(name);
        }
        talk->add_user("Eve"); // made by another program
        talk->add_room("the attic", "bob");
        talk->add_room("cellar", "ann");
        talk->add_room("Loft", "ann");
        talk->start();
        talk->engine().settings.set_Message_Expiration_Time(90);
    }

    void write(qz::test::ChatClient& from, const std::string& fields, const std::string& text, int number = 5)
    {
        from.wire().send(qz::test::envelope(
            "msg sessionidvalue=" + from.session_id() + " " + fields + " msg=" + text, number));
    }
    /// "recipient expiration" of what waits.
    Texts queued()
    {
        Texts texts;
        for (const auto& entry : talk->engine().message_queue.get_QueueMessages()) {
            texts.push_back(entry.UserName_To + " " + entry.ExpirationTime.text());
        }
        return texts;
    }
    Texts failures() { return talk->events().take_starting("Error "); }
    /// Takes what everybody said to each other so far.
    void forget(std::initializer_list<qz::test::ChatClient*> clients)
    {
        for (auto* client : clients) {
            client->hear();
        }
        talk->events().list.clear();
    }

    std::unique_ptr<qz::test::Talk> talk = qz::test::talk_in_memory();
};

const std::string kOffLine =
    " that looks to be offline; the system will try to delivery your message until to ";

} // namespace

TEST_F(MessageRequestsTest, WarnsTheSender)
{
    auto ann = talk->on_line("ann");
    auto mary = talk->on_line("mary ann");
    mary.say("status", wire("screenname=mary_ann status=out to lunch"));
    forget({&ann});
    const struct {
        const char* fields;
        std::string notice;
        Texts queued;
    } cases[] = {
        {"screennamefrom=ann screennameto=nobody", "The buddy nobody doesn't exist!", {}},
        {"screennamefrom=ANN screennameto=No_Body", "The buddy No Body doesn't exist!", {}},
        {"screennamefrom=ann screennameto=", "The buddy  doesn't exist!", {}},
        {"screennamefrom=ann", "The buddy  doesn't exist!", {}},
        {"screennamefrom=ann screennameto=attic", "The buddy attic doesn't exist!", {}},
        {"screennamefrom=ann screennameto=#attic", "The room attic doesn't exist!", {}},
        {"screennamefrom=ann screennameto=#The_Roof", "The room The Roof doesn't exist!", {}},
        {"screennamefrom=ann screennameto=##bob#", "The room bob doesn't exist!", {}},
        {"screennamefrom=ann screennameto=#", "The room  doesn't exist!", {}},
        {"screennamefrom=ann screennameto=ann", "You can't send messages to yourself!", {}},
        {"screennamefrom=Ann screennameto=ANN", "You can't send messages to yourself!", {}},
        {"screennamefrom=ann screennameto=bob",
            "You are sending a message to bob" + kOffLine + "2026-03-02 10:30:00",
            {"bob 2026-03-02 10:30:00"}},
        {"screennamefrom=ann screennameto=BOB", // who exists in lower case
            "You are sending a message to bob" + kOffLine + "2026-03-02 10:30:00",
            {"bob 2026-03-02 10:30:00"}},
        {"screennamefrom=ann screennameto=Eve",
            "You are sending a message to Eve" + kOffLine + "2026-03-02 10:30:00",
            {"Eve 2026-03-02 10:30:00"}},
        {"screennamefrom=ann screennameto=eve", "The buddy eve doesn't exist!", {}},
        {"screennamefrom=ann screennameto=Mary_Ann",
            "You are sending a message to mary ann that looks to be out to lunch; the system will deliver "
            "your "
            "message but it's possible it will be not read soon",
            {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fields);
        write(ann, wire(c.fields), "hi");
        EXPECT_THAT(ann.hear(), ElementsAre("notice " + c.notice));
        EXPECT_EQ(queued(), c.queued);
        talk->engine().message_queue.QueueMessage_ClearQueue();
    }
    EXPECT_THAT(mary.hear(), ElementsAre(HasSubstr("msg=hi"))) << "and nothing else";
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(MessageRequestsTest, ReadsTheExpiration)
{
    auto ann = talk->on_line("ann");
    forget({&ann});
    const std::string kDefault = "2026-03-02 10:30:00";
    const struct {
        const char* given;
        std::string expiration; // empty: the message is refused
    } cases[] = {
        {"", kDefault},
        {"expirationend=", kDefault},
        {"expirationend=__", kDefault},
        {"expirationend=03/04/2026_18.30.59", "2026-03-04 18:30:59"},
        {"expirationend=_03/04/2026_13.00.00_", "2026-03-04 13:00:00"},
        {"expirationend=12/31/2026_23.59.59", "2026-12-31 23:59:59"},
        {"expirationend=02/29/2028_00.00.00", "2028-02-29 00:00:00"},
        {"expirationend=3/4/2026_9.5.7", "2026-03-04 09:05:07"},
        {"expirationend=12/4/2026_09.5.07", "2026-12-04 09:05:07"},
        {"expirationend=003/4/2026_9.5.7", ""},
        {"expirationend=/4/2026_9.5.7", ""},
        {"expirationend=3/4/2026_9.5.", ""},
        {"expirationend=3/4/2026_9.5", ""},
        {"expirationend=3/4/2026__9.5.7", ""},
        {"expirationend=3/4/26_9.5.7", ""},
        {"expirationend=02/29/2027_00.00.00", ""},
        {"expirationend=13/04/2026_10.00.00", ""},
        {"expirationend=03/32/2026_10.00.00", ""},
        {"expirationend=03/04/2026_24.00.00", ""},
        {"expirationend=03/04/2026_10.60.00", ""},
        {"expirationend=03/04/2026_10:00:00", ""},
        {"expirationend=03/04/2026_1.00.00_PM", ""},
        {"expirationend=03/04/2026", ""},
        {"expirationend=03/04/26_10.00.00", ""},
        {"expirationend=2026-03-04_10.00.00", ""},
        {"expirationend=03/04/+026_10.00.00", ""},
        {"expirationend=03/04/-026_10.00.00", ""},
        {"expirationend=03/04/20260_10.00.00", ""},
        {"expirationend=tomorrow", ""},
        {"expirationend=99999999999999999999", ""},
        {"expirationend=%s%n%2d", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.given);
        write(ann, std::string("screennamefrom=ann screennameto=bob ") + c.given, "hi");
        const auto heard = ann.hear();
        if (c.expiration.empty()) {
            EXPECT_THAT(heard,
                ElementsAre("notice The latest time of delivery is no date. Your message to bob was not "
                            "accepted!"));
            EXPECT_THAT(queued(), IsEmpty());
            EXPECT_THAT(failures(), IsEmpty());
        } else {
            EXPECT_THAT(
                heard, ElementsAre("notice You are sending a message to bob" + kOffLine + c.expiration));
            EXPECT_THAT(queued(), ElementsAre("bob " + c.expiration));
            EXPECT_THAT(failures(), IsEmpty());
        }
        talk->engine().message_queue.QueueMessage_ClearQueue();
    }
}

TEST_F(MessageRequestsTest, CutsALongExpiration)
{
    talk->engine().ini.WriteIniValue("Safeguards", "LongestExpirationDays", "7");
    auto ann = talk->on_line("ann");
    forget({&ann});
    for (const auto& [given, expiration] :
        std::initializer_list<std::pair<const char*, const char*>>{
            {"03/09/2026_09.00.00", "2026-03-09 09:00:00"}, {"03/09/2026_09.00.01", "2026-03-09 09:00:00"},
            {"12/31/9998_23.59.59", "2026-03-09 09:00:00"}, {"03/02/2026_08.00.00", "2026-03-02 08:00:00"}}) {
        write(ann, std::string("screennamefrom=ann screennameto=bob expirationend=") + given, "hi");
        EXPECT_THAT(queued(), ElementsAre("bob " + std::string(expiration))) << given;
        EXPECT_THAT(ann.hear(), ElementsAre(EndsWith(expiration)))
            << "the sender is told the time that counts";
        talk->engine().message_queue.QueueMessage_ClearQueue();
    }
}

TEST_F(MessageRequestsTest, RefusesAnExpirationThatIsLongOver)
{
    auto& ini = talk->engine().ini;
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    forget({&ann, &bob});
    const auto send = [&](const std::string& to, const std::string& expiration, int number = 5) {
        write(ann, "screennamefrom=ann screennameto=" + to + " expirationend=" + expiration, "hi", number);
    };
    send("bob", "03/01/2026_08.59.59");
    EXPECT_THAT(bob.hear(), ElementsAre(EndsWith("msg=hi"))) << "without the safeguard";
    ini.WriteIniValue("Safeguards", "LongestExpirationDays", "7");
    for (const auto* over :
        {"03/01/2026_08.59.59", "12/31/1969_23.59.59", "12/30/1899_00.00.00", "01/01/0000_00.00.00"}) {
        send("bob", over);
        EXPECT_THAT(ann.hear(),
            ElementsAre("notice The latest time of delivery is long over. Your message to bob was not "
                        "accepted!"))
            << over;
    }
    EXPECT_THAT(bob.hear(), IsEmpty());
    send("bob", "03/01/2026_09.00.00");
    EXPECT_THAT(bob.hear(), ElementsAre(EndsWith("msg=hi"))) << "clocks differ";

    // What was accepted in time may be sent again when its time is over.
    ini.WriteIniValue("Safeguards", "DurableQueue", "True");
    send("bob", "03/02/2026_10.00.00", 6);
    forget({&ann, &bob});
    send("bob", "01/02/2026_10.00.00", 6);
    EXPECT_THAT(ann.hear(), IsEmpty());
    EXPECT_THAT(bob.hear(), IsEmpty());
    EXPECT_THAT(talk->log(), ElementsAre(HasSubstr("repeated with MsgID 6")));
}

TEST_F(MessageRequestsTest, RemindsOfTheOwnAutomaticReply)
{
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    talk->engine().auto_replies.Update_AutoReply("ann", "gone", true);
    forget({&ann, &bob});
    for (int times = 0; times < 2; ++times) {
        write(ann, "screennamefrom=ann screennameto=bob", "hi");
        EXPECT_THAT(ann.hear(), ElementsAre("notice You have AutoReply On"));
        EXPECT_THAT(bob.hear(), ElementsAre(HasSubstr(" msg=hi")));
    }
    write(ann, "screennamefrom=ann screennameto=ann", "hi");
    EXPECT_THAT(ann.hear(),
        ElementsAre("notice You have AutoReply On", "notice You can't send messages to yourself!"));
    write(ann, "screennamefrom=ann screennameto=nobody", "hi");
    EXPECT_THAT(ann.hear(), ElementsAre("notice The buddy nobody doesn't exist!"));
    talk->engine().auto_replies.Update_AutoReply("ann", "gone", false);
    write(ann, "screennamefrom=ann screennameto=bob", "hi");
    EXPECT_THAT(ann.hear(), IsEmpty());
}

TEST_F(MessageRequestsTest, ReachesTheRecipientWithItsNumber)
{
    auto ann = talk->on_line("ann");
    auto mary = talk->on_line("mary ann");
    forget({&ann, &mary});
    const struct {
        const char* receipt;
        const char* shown;
    } cases[] = {{"", "False"}, {"receiptrequested=", "False"}, {"receiptrequested=True", "True"},
        {"receiptrequested=false", "False"}, {"receiptrequested=1", "True"}, {"receiptrequested=x", "False"}};
    int number = 70;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.receipt);
        ++number;
        write(ann, wire("screennamefrom=ann screennameto=mary_ann ") + c.receipt, "a = b  msgid=1", number);
        const auto bytes = mary.wire().take();
        EXPECT_THAT(bytes, HasSubstr("\x0E" + std::to_string(number) + "\x0F"));
        EXPECT_THAT(qz::test::messages_in(bytes),
            ElementsAre(wire("msg screennamefrom=ann screennameto=mary_ann receivedtime=2026-03-02_09:00:00 "
                             "expirationtime=2026-03-02_10:30:00 receiptrequested=")
                + c.shown + " msg=a = b  msgid=1"));
        EXPECT_THAT(talk->log(),
            ElementsAre("New message from ann to mary ann with MsgID " + std::to_string(number)
                + " [ann, 192.0.2.10]"));
    }
    EXPECT_THAT(ann.hear(), IsEmpty());
    EXPECT_THAT(queued(), IsEmpty());
}

TEST_F(MessageRequestsTest, TextsCannotForgeAnything)
{
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    forget({&ann, &bob});
    const std::string r = "\xEF\xBF\xBD";
    const struct {
        std::string text;
        std::string shown;
    } cases[] = {
        {"", ""},
        {" two  blanks ", " two  blanks "},
        {"line\r\nline\t", "line\r\nline\t"},
        {"a\x02"
         "b\x04"
         "c\x01"
         "d\x0E"
         "9\x0F"
         "e\x1B",
            "a" + r + "b" + r + "c" + r + "d" + r + "9" + r + "e" + r},
        {wire("a_b"), wire("a_b")},
        {"x screennamefrom=carl msg=y", "x screennamefrom=carl msg=y"},
        {"\xC3\xBC \xF0\x9F\x98\x80", "\xC3\xBC \xF0\x9F\x98\x80"},
    };
    for (const auto& c : cases) {
        write(ann, "screennamefrom=ann screennameto=bob", c.text);
        const auto heard = bob.hear();
        ASSERT_EQ(heard.size(), 1U) << c.text;
        EXPECT_TRUE(heard.front().starts_with("msg screennamefrom=ann screennameto=bob ")) << heard.front();
        EXPECT_TRUE(heard.front().ends_with(" receiptrequested=False msg=" + c.shown)) << heard.front();
    }
    write(ann, "screennamefrom=ann screennameto=o'neil", "it's");
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(MessageRequestsTest, ARoomHasItsMembersInItForAMinute)
{
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    auto mary = talk->on_line("mary ann");
    auto carl = talk->on_line("carl");
    auto& rooms = talk->engine().rooms;
    for (const auto* name : {"bob", "ann", "mary ann"}) {
        rooms.AddUserInRoom(name, "the attic", "");
    }
    rooms.AddUserInRoom("dora", "cellar", "");
    forget({&ann, &bob, &mary, &carl});
    for (const auto* room : {"#the_attic", "##the#_attic#", "#The_ATTIC"}) {
        SCOPED_TRACE(room);
        write(ann,
            wire(std::string("screennamefrom=ann receiptrequested=True expirationend=01/01/2030 00.00.00 "
                             "screennameto=")
                + room),
            "Tea?", 8);
        const auto begin = wire("msg screennamefrom=#the_attic screennameto=");
        const auto end = wire("receivedtime=2026-03-02_09:00:00 expirationtime=2026-03-02_09:01:00 "
                              "receiptrequested=False roomsender=ann msg=Tea?");
        EXPECT_THAT(bob.hear(), ElementsAre(AllOf(StartsWith(begin + "bob "), EndsWith(end))));
        EXPECT_THAT(mary.hear(), ElementsAre(AllOf(StartsWith(begin + wire("mary_ann ")), EndsWith(end))));
        EXPECT_THAT(talk->log(),
            ElementsAre("New message from ann for room the attic with MsgID 8 [ann, 192.0.2.10]",
                "New message from ann for room the attic with MsgID 8 [ann, 192.0.2.10]"));
        EXPECT_THAT(ann.hear(), IsEmpty());
    }

    // Whoever writes joins, and gets the answers.
    write(carl, wire("screennamefrom=carl screennameto=#the_attic"), "Me too");
    EXPECT_THAT(rooms.members_of("the attic"), ElementsAre("bob", "ann", "mary ann", "carl"));
    for (auto* other : {&ann, &bob, &mary}) {
        EXPECT_THAT(other->hear(), ElementsAre(HasSubstr(" roomsender=carl msg=Me too")));
    }
    write(bob, wire("screennamefrom=bob screennameto=#the_attic"), "Fine");
    EXPECT_THAT(carl.hear(), ElementsAre(HasSubstr(" roomsender=bob msg=Fine")));
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(MessageRequestsTest, ARoomMessageWaitsForAMemberWithoutASocket)
{
    auto ann = talk->on_line("ann");
    talk->engine().rooms.AddUserInRoom("dora", "cellar", "");
    talk->engine().rooms.AddUserInRoom("bob", "cellar", "");
    forget({&ann});
    write(ann, "screennamefrom=ann screennameto=#cellar", "hi");
    EXPECT_THAT(queued(), ElementsAre("dora 2026-03-02 09:01:00", "bob 2026-03-02 09:01:00"));
    EXPECT_THAT(ann.hear(), IsEmpty()) << "nobody is told who of a room is away";
}

TEST_F(MessageRequestsTest, ARoomIsWrittenToInLowerCase)
{
    auto ann = talk->on_line("ann");
    talk->engine().rooms.AddUserInRoom("bob", "Loft", "");
    forget({&ann});
    write(ann, "screennamefrom=ann screennameto=#Loft", "hi"); // which is there, but not as "loft"
    EXPECT_THAT(ann.hear(), IsEmpty());
    EXPECT_THAT(queued(), IsEmpty());
    EXPECT_THAT(talk->engine().rooms.rooms_of("ann"), IsEmpty());
    write(ann, "screennamefrom=ann screennameto=#loft", "hi");
    EXPECT_THAT(ann.hear(), ElementsAre("notice The room loft doesn't exist!"));
}

TEST_F(MessageRequestsTest, TypingIsShownToWhoIsThere)
{
    auto ann = talk->on_line("ann");
    auto mary = talk->on_line("mary ann");
    forget({&ann, &mary});
    const struct {
        const char* fields;
        const char* heard; // by mary; empty: nothing, by nobody
    } cases[] = {
        {"screennamefrom=Ann screennameto=MARY_ANN", "typing screennamefrom=ann"},
        {"screennamefrom=ann screennameto=mary_ann", "typing screennamefrom=ann"},
        {"screennamefrom=ann screennameto=bob", ""},
        {"screennamefrom=ann screennameto=nobody", ""},
        {"screennamefrom=ann screennameto=#the_attic", ""},
        {"screennamefrom=ann screennameto=", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fields);
        ann.say("typing", wire(c.fields));
        if (std::string(c.heard).empty()) {
            EXPECT_THAT(mary.hear(), IsEmpty());
            EXPECT_THAT(talk->log(), IsEmpty());
        } else {
            EXPECT_THAT(mary.hear(), ElementsAre(c.heard));
            EXPECT_THAT(talk->log(), ElementsAre("ann is typing to mary ann [ann, 192.0.2.10]"));
        }
        EXPECT_THAT(ann.hear(), IsEmpty());
    }
    mary.wire().vanish();
    talk->log();
    ann.say("typing", wire("screennamefrom=ann screennameto=mary_ann"));
    EXPECT_THAT(talk->log(), IsEmpty());
}

TEST_F(MessageRequestsTest, ConfirmationsBringTheReceipt)
{
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    write(ann, "screennamefrom=ann screennameto=bob receiptrequested=True", "one", 41);
    write(ann, "screennamefrom=ann screennameto=bob", "two", 42);
    write(ann, "screennamefrom=ann screennameto=bob receiptrequested=True", "three", 43);
    write(ann, "screennamefrom=ann screennameto=bob receiptrequested=True", "four", 43);
    forget({&ann, &bob});
    const struct {
        const char* id;
        const char* heard; // by ann
        const char* log;
    } cases[] = {
        {"41", "receipt received=41 screennameto=bob", "Receipt for MsgID 41 sent to ann [ann, 127.0.0.1]"},
        {"42", "", ""},
        {"43", "", "Too many messages into the messages table to confirm with MsgID 43"},
        {"44", "", "No message found to confirm with MsgID 44"},
        {"x", "", "No message found to confirm with MsgID 0"},
        {"", "", "No message found to confirm with MsgID 0"},
        {"1e999", "", "No message found to confirm with MsgID 0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.id);
        bob.say("receipt", std::string("msgid=") + c.id);
        const auto expected = [](const std::string& text) {
            return text.empty() ? Texts{} : Texts{text};
        };
        EXPECT_EQ(ann.hear(), expected(c.heard));
        EXPECT_EQ(talk->log(), expected(c.log));
    }
    EXPECT_THAT(bob.hear(), IsEmpty());
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(MessageRequestsTest, TheHostWritesToOneUser)
{
    auto ann = talk->on_line("ann");
    auto& requests = talk->engine().message_requests;
    talk->log();
    requests.Send_InstantMessage("lunch is ready", "ann");
    talk->tick(1);
    EXPECT_THAT(ann.hear(), ElementsAre("notice lunch is ready"));
    EXPECT_THAT(talk->log(), ElementsAre("Message sent correctly to ann"));
    requests.Send_InstantMessage("lunch is ready", "bob"); // an account, but not on line
    EXPECT_THAT(talk->log(), ElementsAre("Message sent correctly to bob"));
    requests.Send_InstantMessage("lunch is ready", "nobody");
    requests.Send_InstantMessage("lunch is ready", "");
    EXPECT_THAT(talk->log(), IsEmpty());
    EXPECT_THAT(ann.hear(), IsEmpty());
}

TEST_F(MessageRequestsTest, AQuotaKeepsMessagesOutAndSaysSo)
{
    const auto set = [&](const char* key, const char* value) {
        talk->engine().ini.WriteIniValue("Safeguards", key, value);
    };
    auto ann = talk->on_line("ann");
    auto carl = talk->on_line("carl");
    const auto refusal = [](const std::string& to, const std::string& whose) {
        return "notice Your message to " + to + " has not been accepted: too many messages " + whose
            + " are waiting to be delivered; try again later";
    };
    set("QueuedPerSender", "2");
    set("QueuedPerRecipient", "3");
    write(ann, "screennamefrom=ann screennameto=bob", "one", 1);
    write(ann, "screennamefrom=ann screennameto=dora", "two", 2);
    forget({&ann});
    write(ann, "screennamefrom=ann screennameto=bob", "three", 3);
    EXPECT_THAT(ann.hear(), ElementsAre(refusal("bob", "from you")));
    write(ann, wire("screennamefrom=ann screennameto=#the_attic"), "to the room", 8);
    EXPECT_THAT(ann.hear(), IsEmpty()) << "rooms are counted by themselves";
    write(carl, "screennamefrom=carl screennameto=bob", "four", 4);
    write(carl, "screennamefrom=carl screennameto=bob", "five", 5);
    forget({&carl});
    set("QueuedPerSender", "9");
    write(ann, "screennamefrom=ann screennameto=bob", "six", 6);
    EXPECT_THAT(ann.hear(), ElementsAre(refusal("bob", "for this recipient")));
    EXPECT_THAT(queued(), testing::SizeIs(4));
    set("QueuedPerRecipient", "0");
    write(ann, "screennamefrom=ann screennameto=bob", "seven", 7);
    EXPECT_THAT(ann.hear(), testing::Each(testing::Not(HasSubstr("not been accepted"))));
}

TEST_F(MessageRequestsTest, QuotasOfBytesAndPairsKeepMessagesOutAndSaySo)
{
    const auto set = [&](const char* key, const char* value) {
        talk->engine().ini.WriteIniValue("Safeguards", key, value);
    };
    auto ann = talk->on_line("ann");
    auto carl = talk->on_line("carl");
    int number = 0;
    /// The reason why a message is refused; empty when it is not.
    const auto refusal = [&](qz::test::ChatClient& from, const std::string& to, std::size_t size) {
        forget({&from});
        write(from,
            wire("screennamefrom=" + (&from == &ann ? std::string("ann") : "carl") + " screennameto=" + to),
            std::string(size, 'x'), ++number);
        for (const auto& text : from.hear()) {
            const std::string end = "; try again later";
            if (text.ends_with(end)) {
                const auto begin = text.find("accepted: ") + 10;
                return text.substr(begin, text.size() - end.size() - begin);
            }
        }
        return std::string();
    };
    const std::string from_you = "too much text from you is waiting to be delivered";
    const std::string for_recipient = "too much text for this recipient is waiting to be delivered";
    for (const auto* member : {"bob", "dora", "ann"}) {
        talk->engine().rooms.AddUserInRoom(member, "the attic", "");
    }
    set("QueuedBytesPerSender", "1000");
    EXPECT_EQ(refusal(ann, "#the_attic", 700), "") << "for two who are off line, counted once";
    EXPECT_EQ(refusal(ann, "bob", 300), "");
    EXPECT_EQ(refusal(ann, "dora", 1), from_you);
    EXPECT_EQ(refusal(ann, "#the_attic", 1), from_you);
    EXPECT_EQ(refusal(carl, "bob", 300), "");
    set("QueuedBytesPerSender", "0");
    set("QueuedBytesPerRecipient", "601");
    EXPECT_EQ(refusal(ann, "bob", 2), for_recipient);
    EXPECT_EQ(refusal(ann, "bob", 1), "") << "what came by rooms does not count";
    EXPECT_EQ(refusal(ann, "dora", 601), "");
    EXPECT_EQ(refusal(ann, "#the_attic", 100), "");
    set("QueuedBytesPerRecipient", "0");
    set("QueuedPerPair", "2");
    EXPECT_EQ(
        refusal(ann, "bob", 1), "too many messages from you to this recipient are waiting to be delivered");
    EXPECT_EQ(refusal(carl, "bob", 1), "");
    EXPECT_EQ(refusal(ann, "dora", 1), "");
}
