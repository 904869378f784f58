// Lists, status changes and the small requests, as clients and the log see them.
#include "protocol/Values.h"
#include "support/Talk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using qz::test::Talk;
using qz::test::TalkKind;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class PresenceConversation : public testing::TestWithParam<TalkKind> {
protected:
    PresenceConversation()
    {
        talk->add_user("ann", true, "Ann", "Lee");
        talk->add_user("bob", true, "Robert", "");
        talk->add_user("carl", true, "", "Annson");
        talk->add_user("dan", false, "Dan", "Ann");
        talk->add_user("mary ann");
        for (const auto* buddy : {"bob", "carl", "mary ann"}) {
            talk->add_buddy("ann", buddy, "old friends");
        }
        talk->add_buddy("bob", "ann", "");
        talk->add_buddy("carl", "bob");
        talk->add_room("the attic", "bob");
        talk->add_room("cellar", "ann");
        talk->start();
    }

    std::unique_ptr<Talk> talk = GetParam()();
};

INSTANTIATE_TEST_SUITE_P(Both, PresenceConversation,
    testing::Values(&qz::test::talk_in_memory, &qz::test::talk_over_loopback),
    [](const auto& kind) { return qz::test::name_of(kind.param); });

/// "_" stands for BlankSubstitute, which reads badly in a literal.
std::string wire(std::string text)
{
    std::replace(text.begin(), text.end(), '_', '\x1F');
    return text;
}

} // namespace

TEST_P(PresenceConversation, ListsShowBuddiesWithTheirStatus)
{
    auto mary = talk->on_line("mary ann");
    auto ann = talk->on_line("ann");
    mary.say("status", wire("screenname=MARY_ANN status=out to lunch"));
    talk->log();

    ann.say("onlinebuddies", "screenname=ANN"); // in other letter case the same user
    EXPECT_THAT(ann.hear(),
        ElementsAre(wire("status screenname=mary_ann status=out to lunch"),
            wire("onlinebuddies mary_ann out_to_lunch")));
    EXPECT_THAT(talk->log(),
        ElementsAre(StartsWith("OnLine Buddies sent to ann ["), StartsWith("Get on line buddies for ann [")));

    ann.say("allbuddies", "");
    EXPECT_THAT(ann.hear(),
        ElementsAre(wire("allbuddies bob old_friends offline#carl old_friends offline"
                         "#mary_ann old_friends out_to_lunch")));
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("Get all buddies from ann [")));

    ann.say("activeusers", "");
    EXPECT_THAT(ann.hear(), ElementsAre(wire("activeusers mary_ann out_to_lunch#ann online")));
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("Get active right now from ann [")));

    ann.say("findbuddy", "screennametofind=ANN");
    EXPECT_THAT(ann.hear(), ElementsAre(wire("findbuddy ann Ann Lee#carl - Annson#mary_ann - -")));
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("SearchBuddy from ann for buddy string: ann [")));
}

TEST_P(PresenceConversation, RoomsAndWhoIsInThem)
{
    auto ann = talk->on_line("ann");
    auto& rooms = talk->engine().rooms;
    rooms.AddUserInRoom("bob", "the attic", "");
    rooms.AddUserInRoom("carl", "the attic", "");
    rooms.AddUserInRoom("bob", "cellar", "");
    talk->log();
    ann.say("roomlist", "screenname=ANN");
    EXPECT_THAT(ann.hear(), ElementsAre(wire("roomlist cellar ann 1#the_attic bob 2")));
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("Rooms sent to ann [")));
    ann.say("whereisbuddy", "screennametofind=Bob");
    EXPECT_THAT(ann.hear(), ElementsAre(wire("whereisbuddy the_attic#cellar")));
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("Get where I am list from ann for buddy: bob [ann, ")));
    ann.say("whereisbuddy", "screennametofind=ann");
    EXPECT_THAT(ann.hear(), IsEmpty());
    EXPECT_THAT(talk->log(), IsEmpty());
}

TEST_P(PresenceConversation, AddsAndDeletesBuddies)
{
    auto mary = talk->on_line("mary ann");
    auto bob = talk->on_line("bob");
    talk->log();
    for (int times = 0; times < 2; ++times) { // the second is cleared away
        bob.say("addbuddy", wire("screenname=BOB newbuddy=Mary_Ann group=dad's_friends"));
        EXPECT_THAT(mary.hear(),
            ElementsAre("notice The user bob has added your name (mary ann) into his buddies list!"));
    }
    bob.say("allbuddies", "");
    EXPECT_THAT(bob.hear(), ElementsAre(wire("allbuddies ann - offline#mary_ann dad's_friends online")));
    mary.say("status", wire("screenname=mary_ann status=busy"));
    EXPECT_THAT(bob.hear(), ElementsAre(wire("status screenname=mary_ann status=busy")));

    talk->log();
    bob.say("deletebuddy", wire("screenname=bob screenname2delete=MARY_ANN"));
    EXPECT_THAT(bob.hear(), IsEmpty());
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("Buddy delete (mary ann) for bob [bob, ")));
    mary.say("status", wire("screenname=mary_ann status=idle"));
    EXPECT_THAT(bob.hear(), IsEmpty());
    bob.say("addbuddy", "screenname=bob newbuddy=carl"); // who is not on line
    EXPECT_THAT(bob.hear(), IsEmpty());
}

TEST_P(PresenceConversation, ReadsAndChangesAnEntry)
{
    auto ann = talk->on_line("ann");
    talk->log();
    ann.say("buddydetails", wire("action=get screenname=Ann buddy=BOB"));
    EXPECT_THAT(ann.hear(),
        ElementsAre(wire("buddydetails action=get buddy=bob firstname=Robert lastname= email= imclientinuse= "
                         "group=old_friends comment= key=")));
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("Buddy details of bob from ann [ann, ")));

    ann.say("buddydetails",
        wire("action=update screenname=ann buddy=bob group=at_work comment=it's_key=x key=a_b"));
    EXPECT_THAT(ann.hear(), ElementsAre("buddydetails buddy=bob action=updated"));
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("Buddy bob updated from ann [ann, ")));
    ann.say("buddydetails", "action=get screenname=ann buddy=bob");
    EXPECT_THAT(ann.hear(),
        ElementsAre(wire("buddydetails action=get buddy=bob firstname=Robert lastname= email= imclientinuse= "
                         "group=at_work comment=it's_key=x key=a b")));

    ann.say("buddykey", wire("action=update screenname=ann buddy=mary_ann key=b'2"));
    EXPECT_THAT(ann.hear(), ElementsAre(wire("buddykey buddy=mary_ann action=updated")));
    talk->log();
    ann.say("buddykey", wire("action=get screenname=ann buddy=mary_ann"));
    EXPECT_THAT(ann.hear(), ElementsAre(wire("buddykey action=get buddy=mary_ann key=b'2")));
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("Buddy's key of mary ann from ann [ann, ")));

    ann.say("buddykey", "action=steal screenname=ann buddy=bob");
    EXPECT_THAT(ann.hear(), IsEmpty());
    talk->engine().database.ClosedbConnection();
    ann.say("buddykey", "action=update screenname=ann buddy=bob key=1");
    ann.say("buddydetails", "action=update screenname=ann buddy=bob");
    EXPECT_THAT(ann.hear(),
        ElementsAre("buddykey buddy=bob action=notupdated", "buddydetails buddy=bob action=notupdated"));
    EXPECT_THAT(talk->log(),
        ElementsAre(StartsWith("Buddy's key  bob not updated from ann ["),
            StartsWith("Buddy bob not updated from ann [")));
}

TEST_P(PresenceConversation, AnybodyMayAskForTheLatestVersion)
{
    talk->engine().settings.set_Client_Last_Version("2.1.0");
    talk->engine().settings.Set_URL_Client_Last_Version("http://example.test/");
    auto ann = talk->on_line("ann");
    auto stranger = talk->connect();
    talk->log();
    stranger.say("lastversion", "");
    EXPECT_THAT(stranger.hear(), IsEmpty()) << "it goes to the user of the socket, and there is none";
    ann.say("lastversion", "screenname=bob");
    EXPECT_THAT(ann.hear(),
        ElementsAre("lastversion version=2.1.0 urlLastClientVersionAvailable=http://example.test/"));
    EXPECT_THAT(talk->log(), ElementsAre("Last version 2.1.0 sent to ", "Last version 2.1.0 sent to ann"));
}

TEST_P(PresenceConversation, AnEmptyListIsNeitherSentNorLogged)
{
    auto carl = talk->on_line("carl");
    auto mary = talk->on_line("mary ann");
    talk->log();
    carl.say("onlinebuddies", "screenname=carl"); // bob is not on line
    mary.say("allbuddies", "");
    mary.say("findbuddy", "screennametofind=");
    mary.say("findbuddy", "screennametofind=dan");
    mary.say("onlinebuddies", "screenname=");
    EXPECT_THAT(carl.hear(), IsEmpty());
    EXPECT_THAT(mary.hear(), IsEmpty());
    EXPECT_THAT(talk->log(),
        ElementsAre(StartsWith("Get on line buddies for carl ["), StartsWith("Get on line buddies for  [")));
}

TEST_P(PresenceConversation, AStatusReachesThoseWhoseListHoldsTheName)
{
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    auto carl = talk->on_line("carl"); // lists bob, but not ann
    ann.hear();
    bob.hear();
    talk->log();
    ann.say("status", "screenname=ann status=away");
    EXPECT_THAT(ann.hear(), IsEmpty());
    EXPECT_THAT(bob.hear(), ElementsAre("status screenname=ann status=away"));
    EXPECT_THAT(carl.hear(), IsEmpty());
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("New status for ann: away [ann, ")));
    EXPECT_EQ(talk->engine().presence.get_UserStatus("ann"), "away");
    EXPECT_EQ(talk->engine().presence.get_UserStatus("Ann"), "offline");
    EXPECT_EQ(talk->engine().presence.get_UserStatus(""), "offline");
}

TEST_P(PresenceConversation, AStatusCannotForgeAnything)
{
    auto bob = talk->on_line("bob");
    auto ann = talk->on_line("ann");
    bob.hear();
    ann.hear();
    // An envelope's end would end the request; every other control character may stand in it.
    ann.say("status", wire("screenname=ann status=x#bob\x04\x02_y\tz = w"));
    bob.say("onlinebuddies", "screenname=bob");
    const std::string r = "\xEF\xBF\xBD";
    EXPECT_THAT(bob.hear(),
        ElementsAre("status screenname=ann status=x#bob" + r + r + " y\tz = w",
            wire("onlinebuddies ann x" + r + "bob" + r + r + "_y\tz_=_w")));
}

TEST_P(PresenceConversation, ALongStatusIsCutAndWhatCannotBeSeenTakenOut)
{
    auto bob = talk->on_line("bob");
    auto ann = talk->on_line("ann");
    bob.hear();
    const std::string hostile = "\x1b[31m\u202egrü\u200bß\x7f" + std::string(9000, 'x');
    const auto status_of = [&](const std::string& limit) {
        talk->engine().ini.WriteIniValue("Safeguards", "StatusLength", limit);
        ann.say("status", "screenname=ann status=" + hostile);
        bob.hear();
        return talk->engine().presence.get_UserStatus("ann");
    };
    EXPECT_EQ(status_of("7"), "[31mgrü");
    EXPECT_EQ(status_of("8"), "[31mgrüß");
    EXPECT_EQ(status_of("200").size(), 202U) << "200 characters";
    EXPECT_TRUE(status_of("0") == hostile);
    EXPECT_TRUE(status_of("") == hostile);
    talk->engine().ini.WriteIniValue("Safeguards", "StatusLength", "200");
    ann.say("status", wire("screenname=ann status=out_to שלום 👩\u200d🚀"));
    EXPECT_THAT(bob.hear(), ElementsAre("status screenname=ann status=out to שלום 👩\u200d🚀"));
}

TEST_P(PresenceConversation, AdministratorAndClientVersion)
{
    talk->engine().settings.set_AdminScreenName("boss");
    auto ann = talk->on_line("ann");
    talk->log();
    ann.say("adminscreenname", "screenname=Ann");
    EXPECT_THAT(ann.hear(), ElementsAre("adminscreenname screenname=boss"));
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("Request AdminScreenName requested from ann [ann, ")));
    ann.say("clientversion", "screenname=Ann clientversion=1.05.2");
    EXPECT_THAT(ann.hear(), IsEmpty());
    EXPECT_THAT(talk->log(), ElementsAre(StartsWith("Saved client version 1.05.2 for ann [ann, ")));
    EXPECT_EQ(talk->engine().accounts.Retrieve_BuddyDetail("ann").client_version, "1.05.2");
    ann.say("clientversion", "screenname=nobody clientversion=1.05.2");
    EXPECT_THAT(talk->log(), IsEmpty());
}

TEST_P(PresenceConversation, RelaysTransfers)
{
    auto mary = talk->on_line("mary ann");
    auto ann = talk->on_line("ann");
    const auto ip = talk->engine().connections.first_named("ann")->RemoteIP;
    talk->log();
    struct Case {
        const char* keyword;
        const char* body;
        const char* relayed; // empty: nothing; else the address follows
        const char* log;
    };
    const std::vector<Case> cases{
        {"filetransfer", "action=request screennamefrom=ANN screennameto=Mary_Ann",
            "filetransfer action=request screennamefrom=ann screennameto=mary_ann remoteip=",
            "FileTransfer Request from ann  to mary ann ["},
        {"screentransfer", "action=request screennamefrom=ann screennameto=mary_ann",
            "screentransfer action=request screennamefrom=ann screennameto=mary_ann remoteip=",
            "ScreenTransfer Request from ann  to mary ann ["},
        {"filetransfer", "action=answer filetransfer=accepted screennamefrom=ann screennameto=mary ann",
            "filetransfer action=answer filetransfer=accepted screennamefrom=ann screennameto=mary_ann "
            "remoteip=",
            "FileTransfer Request from ann  to mary ann has been accepted from mary ann ["},
        {"screentransfer", "action=answer filetransfer=denied screennamefrom=ann screennameto=mary ann",
            "screentransfer action=answer filetransfer=denied screennamefrom=ann screennameto=mary_ann "
            "remoteip=",
            "FileTransfer Request from ann  to mary ann has been denied from mary ann ["},
        {"filetransfer", "action=answer filetransfer=Accepted screennamefrom=ann screennameto=mary ann", "",
            ""},
        {"filetransfer", "action=ask screennamefrom=ann screennameto=mary ann", "", ""},
        {"filetransfer", "action=request screennamefrom=ann screennameto=bob", "", ""},
        {"filetransfer", "action=request screennamefrom=ann screennameto=", "", ""},
    };
    for (const auto& c : cases) {
        ann.say(c.keyword, wire(c.body));
        EXPECT_THAT(ann.hear(), IsEmpty()) << c.body;
        const auto log = talk->log();
        if (std::string(c.relayed).empty()) {
            EXPECT_THAT(mary.hear(), IsEmpty()) << c.body;
            EXPECT_THAT(log, IsEmpty()) << c.body;
        } else {
            EXPECT_THAT(mary.hear(), ElementsAre(wire(c.relayed) + ip)) << c.body;
            EXPECT_THAT(log, ElementsAre(c.log + std::string("ann, ") + ip + "]")) << c.body;
        }
    }
}

TEST_P(PresenceConversation, RefusesWhatThePolicyForbids)
{
    auto& settings = talk->engine().settings;
    settings.set_AdminScreenName("boss");
    settings.set_AllowFileTransfer(0);
    settings.set_AllowSnapShot(0);
    settings.set_AllowAOLIM(0);
    auto bob = talk->on_line("bob");
    auto ann = talk->connect();
    ann.log_on("ann");
    EXPECT_THAT(ann.hear(),
        testing::IsSupersetOf(
            {"policyfiletransfer answer=no", "policyscreenshot answer=no", "policyaolim answer=no"}));
    bob.hear();
    ann.say("filetransfer", "action=request screennamefrom=ann screennameto=bob");
    ann.say("screentransfer", "action=request screennamefrom=ann screennameto=bob");
    EXPECT_THAT(ann.hear(),
        ElementsAre("notice File Transfer not allowed by internal policy. Please contact boss for support",
            "notice ScreenShot not allowed by internal policy. Please contact boss for support"));
    EXPECT_THAT(bob.hear(), IsEmpty());
}

TEST_P(PresenceConversation, PolicyReachesEveryClient)
{
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    ann.hear();
    talk->engine().settings.set_AllowSnapShot(0);
    talk->engine().settings.set_Message_Expiration_Time(90);
    talk->log();
    talk->engine().commands.SendPolicyToClients();
    talk->tick(1);
    EXPECT_THAT(talk->log(), ElementsAre("Policy sent to ann", "Policy sent to bob"));
    talk->engine().policy.SendMessageExpirationTimeToClients();
    talk->tick(1);
    EXPECT_THAT(talk->log(),
        ElementsAre("Message expiration time sent to ann", "Message expiration time sent to bob"));
    for (auto* client : {&ann, &bob}) {
        EXPECT_THAT(client->hear(),
            ElementsAre("policyfiletransfer answer=accepted", "policyscreenshot answer=no",
                "policyaolim answer=accepted", "expirationtime expiration=90"));
    }
    talk->engine().policy.SendPolicy("");
    talk->engine().policy.SendMessageExpirationTime("");
    EXPECT_THAT(talk->log(), IsEmpty());
}

TEST(Presence, FiveHundredBuddiesEachHearOnce)
{
    constexpr int many = 500;
    const auto name = [](int number) {
        return "user" + std::to_string(1000 + number);
    };
    const auto talk = qz::test::talk_in_memory();
    talk->add_user("ann");
    for (int i = 0; i < many; ++i) {
        talk->add_user(name(i));
        talk->add_buddy(name(i), "ann");
        talk->add_buddy("ann", name(i));
    }
    talk->add_buddy(name(7), "ann"); // twice in one list
    talk->start();
    talk->engine().pool.LoadSockets(many, false);
    std::vector<qz::test::ChatClient> clients;
    clients.reserve(many);
    for (int i = 0; i < many; ++i) {
        clients.push_back(talk->on_line(name(i)));
    }
    auto ann = talk->on_line("ann");
    for (auto& client : clients) {
        ASSERT_THAT(client.hear(), ElementsAre("status screenname=ann status=online"));
    }
    ann.say("onlinebuddies", "screenname=ann");
    const auto heard = ann.hear();
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_EQ(std::count(heard[0].begin(), heard[0].end(), '#'), many - 1);
}

TEST(Presence, AListLongerThanSixteenChunksEndsWithAnError)
{
    const auto talk = qz::test::talk_in_memory();
    for (int i = 0; i < 200; ++i) {
        talk->add_user(std::string(200, 'x') + std::to_string(1000 + i));
    }
    talk->add_user("ann");
    talk->start();
    auto ann = talk->on_line("ann");
    talk->events().list.clear();
    ann.say("findbuddy", "screennametofind=xxx");
    EXPECT_THAT(ann.hear(), IsEmpty()) << "sixteen chunks are no whole message";
    const auto& events = talk->events().list;
    EXPECT_EQ(std::count(events.begin(), events.end(), "Outgoing"), 16);
    EXPECT_THAT(events, testing::Contains("Error SendData 6 @"));
    ann.say("echo", "");
    EXPECT_THAT(ann.hear(), ElementsAre("echo ")) << "the connection is fine";
}

TEST(Presence, NamesOfAnyTextTravelWhole)
{
    const auto talk = qz::test::talk_in_memory();
    const std::vector<std::string> names{"a b", "x=y", "\xC3\xA9milie", "#room", "key=1 status=z"};
    talk->add_user("ann");
    for (const auto& name : names) {
        talk->add_user(name);
        talk->add_buddy("ann", name);
    }
    talk->start();
    auto ann = talk->on_line("ann");
    for (const auto& name : names) {
        auto client = talk->on_line(name);
        EXPECT_THAT(ann.hear(),
            ElementsAre("status screenname=" + qz::protocol::without_blanks(name) + " status=online"));
    }
}
