// The logon as its client, its buddies and the host see it.
#include "platform/sodium/SodiumCrypto.h"
#include "store/Statements.h"
#include "support/Conversation.h"
#include "support/Talk.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using qz::helpers::CredentialForm;
using qz::test::Talk;
using qz::test::TalkKind;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class LogOnConversation : public testing::TestWithParam<TalkKind> {
protected:
    LogOnConversation()
    {
        talk->add_user("ann");
        talk->add_user("bob");
        talk->add_user("dis", false);
        talk->add_buddy("ann", "bob");
        talk->add_buddy("ann", "carl");
        talk->add_buddy("bob", "ann");
        talk->add_room("the attic", "bob");
        talk->add_room("cellar", "");
        talk->engine().settings.set_Client_Last_Version("1.05.61");
        talk->engine().settings.Set_URL_Client_Last_Version("http://example.test/a client");
        talk->start();
    }

    std::unique_ptr<Talk> talk = GetParam()();
};

INSTANTIATE_TEST_SUITE_P(Both, LogOnConversation,
    testing::Values(&qz::test::talk_in_memory, &qz::test::talk_over_loopback),
    [](const auto& kind) { return qz::test::name_of(kind.param); });

} // namespace

TEST_P(LogOnConversation, AnswersInOrderAndTellsTheBuddies)
{
    auto bob = talk->on_line("bob");
    talk->log();
    auto ann = talk->connect();
    ann.log_on("ann");
    EXPECT_THAT(ann.hear(),
        ElementsAre("logon answer=accepted", "onlinebuddies bob online",
            "roomlist cellar - 0#the\x1F"
            "attic bob 0",
            "policyfiletransfer answer=accepted", "policyscreenshot answer=accepted",
            "policyaolim answer=accepted",
            "lastversion version=1.05.61 urlLastClientVersionAvailable=http://example.test/a client",
            StartsWith("expirationtime expiration=")));
    EXPECT_THAT(bob.hear(), ElementsAre("status screenname=ann status=online"));
    EXPECT_THAT(talk->log(),
        ElementsAre(StartsWith("New status for ann: online [ann, "),
            StartsWith("LogOn successfully for ann from "), StartsWith("OnLine Buddies sent to ann ["),
            StartsWith("Rooms sent to ann ["), "Policy sent to ann", "Last version 1.05.61 sent to ann",
            "Message expiration time sent to ann"));

    const auto& record = *talk->engine().connections.first_named("ann");
    EXPECT_EQ(record.SessionID, ann.session_id());
    EXPECT_EQ(record.Status, 0);
    EXPECT_FALSE(record.ChangeTime.empty());
    EXPECT_EQ(talk->engine().connections.count_on_line(), 2);
}

TEST_P(LogOnConversation, RefusesEachInItsOwnWay)
{
    struct Case {
        std::string name;
        const char* password;
        std::vector<std::string> answers;
        const char* log_end;
    };
    const std::vector<Case> cases{
        {"nobody", "secret", {}, ""},
        {"", "secret", {}, ""},
        {"ANN", "secret", {}, ""}, // the directory's names are compared as they stand
        {"dis", "secret", {"notice Your account is disabled!", "logon answer=no"},
            " because the account is disabled!"},
        {"ann", "Secret", {"logon answer=no"}, ""},
        {"ann", "", {"logon answer=no"}, ""},
    };
    for (const auto& c : cases) {
        auto client = talk->connect();
        talk->events().list.clear();
        client.log_on(c.name, c.password);
        EXPECT_EQ(client.hear(), c.answers) << c.name;
        EXPECT_FALSE(client.ended()) << c.name;
        EXPECT_THAT(talk->events().list, Contains("OnLine 0")) << c.name;
        const auto log = talk->log();
        ASSERT_EQ(log.size(), 1U) << c.name;
        EXPECT_THAT(log[0], StartsWith("LogOn failed for " + c.name + " from ")) << c.name;
        EXPECT_THAT(log[0], HasSubstr(std::string(c.log_end) + " [" + c.name + ", ")) << c.name;
    }
    EXPECT_EQ(talk->engine().connections.count_on_line(), 0);
}

TEST_P(LogOnConversation, ASecondLogonClosesTheFirstBeforeItIsAccepted)
{
    auto bob = talk->on_line("bob");
    auto first = talk->on_line("ann");
    bob.hear();
    auto second = talk->connect();
    talk->log();
    second.log_on("ann");
    EXPECT_EQ(second.hear().at(0), "logon answer=accepted");
    EXPECT_THAT(first.hear(), ElementsAre(StartsWith("notice Somebody from ")));
    EXPECT_TRUE(first.ended());
    EXPECT_THAT(bob.hear(),
        ElementsAre("status screenname=ann status=offline", "status screenname=ann status=online"));
    const auto log = talk->log();
    ASSERT_GE(log.size(), 4U);
    EXPECT_THAT(log[0], EndsWith(" forced log off of ann"));
    EXPECT_THAT(log[1], StartsWith("New status for ann: offline"));
    EXPECT_THAT(log[2], StartsWith("New status for ann: online"));
    EXPECT_THAT(log[3], StartsWith("LogOn successfully for ann"));
    EXPECT_EQ(talk->engine().connections.named("ann").size(), 1U);
}

TEST_P(LogOnConversation, AUserWhoReplacesTheOwnConnectionIsOut)
{
    auto ann = talk->on_line("ann");
    talk->log();
    ann.log_on("ann"); // names its session id, so the request passes
    EXPECT_THAT(ann.hear(), ElementsAre(StartsWith("notice Somebody from ")));
    EXPECT_TRUE(ann.ended());
    EXPECT_EQ(talk->engine().connections.count_on_line(), 0);
    EXPECT_THAT(talk->log(),
        ElementsAre(EndsWith(" forced log off of ann"), StartsWith("New status for ann: offline")));
}

TEST_P(LogOnConversation, WhoLeavesIsAnnouncedOffLine)
{
    auto bob = talk->on_line("bob");
    auto ann = talk->on_line("ann");
    bob.hear();
    talk->events().list.clear();
    ann.wire().vanish();
    bob.say("echo", "");
    EXPECT_THAT(bob.hear(), ElementsAre("status screenname=ann status=offline", "echo "));
    EXPECT_THAT(talk->events().list, Contains("OnLine 1"));
    EXPECT_EQ(talk->engine().presence.get_UserStatus("ann"), "offline");
}

TEST_P(LogOnConversation, TakesCredentialsInEveryForm)
{
    struct Case {
        const char* name;
        const char* password;
        const char* first_answer; // empty: none
    };
    const std::vector<Case> cases{
        {"bob", "{v1}pc2VjcmV0", "logon answer=accepted"},       // a short name as it stands
        {"{v1}pYm9i", "XXXXpc2VjcmV0", "logon answer=accepted"}, // four characters go, whichever they are
        {"bob", "secret", "logon answer=no"},                    // "et" is no coded text: empty
        {"bob", "{v1}", "logon answer=no"},                      // coded as nothing at all
        {"{v1}pYm8", "{v1}pc2VjcmV0", ""},                       // "bo"
        {"{v1}x", "{v1}pc2VjcmV0", ""},                          // no such form
        {"\xC3\xA4\xC3\xB6\xC3\xBC", "{v1}pc2VjcmV0", ""},       // three characters, six bytes
    };
    for (const auto& c : cases) {
        auto client = talk->connect();
        client.wire().send(qz::test::envelope("logon screenname=" + std::string(c.name)
            + " password=" + c.password + " sessionidvalue=" + client.session_id()));
        const auto heard = client.hear();
        EXPECT_EQ(heard.empty() ? "" : heard[0], c.first_answer) << c.name << " " << c.password;
    }
    EXPECT_THAT(talk->log(), Contains(StartsWith("LogOn failed for \xC3\xA4\xC3\xB6\xC3\xBC from")));
}

TEST_P(LogOnConversation, ASealForAnotherAddressOpensNothing)
{
    auto client = talk->connect();
    qz::platform::SodiumCrypto crypto;
    const auto coded = [&](const std::string& text) {
        return EncodeCredential(crypto, text, "198.51.100.7", CredentialForm::Address);
    };
    client.wire().send(qz::test::envelope("logon screenname=" + coded("ann") + " password=" + coded("secret")
        + " sessionidvalue=" + client.session_id()));
    EXPECT_THAT(client.hear(), IsEmpty());
    EXPECT_EQ(talk->engine().connections.count_on_line(), 0);
}

namespace {

/// A server whose events can hold the loop for so long that sending really yields.
class YieldingLogOn : public testing::Test {
protected:
    YieldingLogOn()
    {
        auto& database = server.engine.database;
        for (const auto* name : {"ann", "bob", "carl"}) {
            qz::test::add_row(
                database, qz::store::tables::kUsers, {{"UserName", name}, {"Password", "secret"}});
        }
        for (const auto* owner : {"bob", "carl"}) {
            qz::test::add_row(database, qz::store::tables::kBuddies, {{"UserName", owner}, {"Buddy", "ann"}});
        }
        server.start();
    }
    static std::string log_on_text(
        const std::string& name, const std::string& session, const std::string& sealed_for = {})
    {
        qz::platform::SodiumCrypto crypto;
        const auto coded = [&](const std::string& text) {
            return EncodeCredential(crypto, text, sealed_for,
                sealed_for.empty() ? CredentialForm::Plain : CredentialForm::Address);
        };
        return qz::test::envelope("logon screenname=" + coded(name) + " password=" + coded("secret")
            + " sessionidvalue=" + session);
    }

    qz::test::TestEngine server;
};

} // namespace

TEST_F(YieldingLogOn, TheLoopbackAddressOpensCredentialsOnlyOfWhoIsSeenThere)
{
    const struct {
        const char* client;
        const char* sealed_for;
        bool accepted;
    } cases[] = {
        {"127.0.0.1", "127.0.0.1", true},
        {"127.0.0.1", "192.0.2.1", true}, // the machine's own address, which stands for it
        {"192.0.2.1", "127.0.0.1", false},
        {"192.0.2.10", "127.0.0.1", false},
        {"192.0.2.10", "192.0.2.10", true},
    };
    for (const auto& each : cases) {
        auto client = server.client(each.client);
        client.send(log_on_text("ann", "1", each.sealed_for));
        server.settle();
        EXPECT_EQ(server.engine.connections.count_on_line(), each.accepted ? 1 : 0)
            << each.client << " " << each.sealed_for;
        client.vanish();
        server.settle();
    }
}

TEST_F(YieldingLogOn, AConnectionHasOneAddressAndAStatusFromItsBeginning)
{
    auto ann = server.client("127.0.0.1");
    std::string status;
    server.events.on_event = [&](const std::string& event) {
        if (event == "Outgoing" && status.empty()) {
            status = server.engine.presence.get_UserStatus("ann"); // with the acceptance
        }
    };
    ann.send(log_on_text("ann", "1"));
    server.settle();
    server.events.on_event = nullptr;
    EXPECT_EQ(status, "online");
    ann.vanish();
    server.settle();
    EXPECT_THAT(server.events.take_starting("Log New status"),
        ElementsAre("Log New status for ann: online [ann, 192.0.2.1]",
            "Log New status for ann: offline [ann, 192.0.2.1]"));
}

TEST_F(YieldingLogOn, TwoOfOneNameInOneTurnLeaveOneOnLine)
{
    for (const bool slow : {false, true}) {
        server.machine.loop().set_events_slow(slow);
        auto first = server.client();
        auto second = server.client();
        first.send(log_on_text("ann", "1"));
        second.send(log_on_text("ann", "2"));
        server.settle();
        ASSERT_EQ(server.engine.connections.named("ann").size(), 1U) << slow;
        EXPECT_EQ(server.engine.connections.first_named("ann")->Socket, second.number()) << slow;
        EXPECT_TRUE(first.ended()) << slow;
        EXPECT_FALSE(second.ended()) << slow;
        server.engine.policing.CloseAllConnections();
        server.settle();
    }
}

TEST_F(YieldingLogOn, AClientThatVanishesInTheMiddleIsNotLeftOnLine)
{
    auto bob = server.client_on_line("bob", "b");
    auto carl = server.client_on_line("carl", "c");
    server.machine.loop().set_events_slow(true);
    for (const int outgoing : {1, 2, 3}) { // the acceptance, and what each of the buddies is told
        auto ann = server.client();
        int seen = 0;
        server.events.on_event = [&](const std::string& event) {
            if (event == "Outgoing" && ++seen == outgoing) {
                ann.vanish();
            }
        };
        ann.send(log_on_text("ann", "1"));
        server.settle();
        server.events.on_event = nullptr;
        EXPECT_EQ(server.engine.connections.count_on_line(), 2) << outgoing;
        for (auto* buddy : {&bob, &carl}) {
            const auto told = qz::test::messages_in(buddy->take());
            ASSERT_FALSE(told.empty()) << outgoing;
            EXPECT_EQ(told.back(), "status screenname=ann status=offline") << outgoing;
        }
    }
}

TEST_F(YieldingLogOn, TheAdministratorHearsOfUnknownNames)
{
    auto& engine = server.engine;
    engine.accounts.set_MyDetails("bob", {"boss@example.test", "Bo", "", "", "", "", "", "secret"}, "");
    engine.settings.set_AdminScreenName("bob");
    engine.settings.set_SPTMP_Server("mail.example.test");
    auto stranger = server.client("198.51.100.7");
    stranger.send(log_on_text("no\r\nbody", "1"));
    server.settle();
    EXPECT_THAT(stranger.take(), IsEmpty());
    ASSERT_EQ(server.machine.mail.mails.size(), 1U);
    const auto& mail = server.machine.mail.mails.front();
    const std::string line(90, '-');
    EXPECT_EQ(mail.recipient, "boss@example.test");
    EXPECT_EQ(mail.subject, "Tentative of access for a not exsting user!");
    EXPECT_EQ(mail.body,
        "Hi Bo, this is an automatic message!\r\n" + line
            + "\r\nSomebody is trying to access to VELTO server using the following screen name:\r\n"
              "Screen name   : nobody\r\nPassword      : secret\r\nRemote IP     : 198.51.100.7\r\n"
              "Now it's      : Monday, 22 March 2026 ; 00:00 at 09:00:00\r\n"
            + line);
}
