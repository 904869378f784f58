// The safeguards VerifySender and VerifyReceipt against a client that speaks for somebody else.
#include "protocol/SenderCheck.h"

#include "store/Statements.h"
#include "support/Conversation.h"
#include "support/Talk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Texts = std::vector<std::string>;

namespace {

/// Commands that act for whoever is logged on, or prove who they are. A new command that names its sender
/// does not belong here.
const std::set<std::string> kNameNobody{
    "receipt", "logon", "lastversion", "whereisbuddy", "activeusers", "allbuddies", "findbuddy", "echo"};

class SenderCheckTest : public testing::Test {
protected:
    SenderCheckTest()
    {
        for (const auto* name : {"ann", "bob", "carl"}) {
            talk->add_user(name);
        }
        talk->add_buddy("bob", "carl");
        talk->add_room("attic", "bob");
        talk->add_room("cellar", "bob");
        talk->start();
    }

    void set(const char* safeguard, const char* value)
    {
        talk->engine().ini.WriteIniValue("Safeguards", safeguard, value);
    }
    /// Every variant of a command with what it needs to have an effect.
    static Texts variants(const std::string& command, const std::string& name)
    {
        const auto from =
            name.empty() ? std::string{} : "screenname=" + name + " screennamefrom=" + name + " ";
        Texts texts;
        for (const auto* fields :
            {"action=request screennameto=carl newbuddy=ann group=g status=away screenname2delete=carl "
             "clientversion=9.9.9 msg=hello",
                "action=answer filetransfer=accepted screennameto=carl", "action=get buddy=carl",
                "action=update buddy=carl key=k comment=c group=g status=True message=gone",
                "action=join roomname=attic", "action=leave roomname=cellar", "action=guest roomname=cellar",
                "action=whereiam", "action=createnew roomname=den", "action=delete roomname=attic",
                "action=check"}) {
            texts.push_back(
                command + " " + from + fields); // NOLINT(performance-inefficient-string-concatenation)
        }
        return texts;
    }
    /// Everything that a request could have changed in the tables.
    Texts tables()
    {
        using namespace qz::store::tables;
        Texts rows;
        for (const auto& table : {kUsers, kBuddies, kRooms, kMessages}) {
            for (const auto& row : talk->engine().database.maintenance().read_rows(table, 0, 1'000).rows) {
                std::string text;
                for (const auto& value : row) {
                    text += value.text() + "|";
                }
                rows.push_back(text);
            }
        }
        rows.push_back(talk->engine().auto_replies.Retrieve_AutoReply("bob") ? "automatic reply" : "");
        return rows;
    }

    std::unique_ptr<qz::test::Talk> talk = qz::test::talk_in_memory();
};

} // namespace

TEST_F(SenderCheckTest, RefusesEveryCommandInAnotherUsersName)
{
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    auto carl = talk->on_line("carl");
    bob.say("room", "screenname=bob action=join roomname=cellar");
    set("VerifySender", "True");
    const auto before = tables();
    for (auto* client : {&ann, &bob, &carl}) {
        client->hear();
    }
    talk->log();
    for (const auto& command : qz::protocol::Dispatcher::commands()) {
        if (kNameNobody.contains(command)) {
            continue;
        }
        for (const auto* name : {"bob", "BOB", "", "nobody", "ann\x1F", "ann'"}) {
            for (const auto& request : variants(command, name)) {
                SCOPED_TRACE(request);
                ann.wire().send(qz::test::envelope(request.substr(0, command.size() + 1)
                    + "sessionidvalue=" + ann.session_id() + request.substr(command.size())));
                EXPECT_THAT(ann.hear(),
                    ElementsAre(
                        AllOf(StartsWith("notice Your request " + command + " has been refused: it names "),
                            HasSubstr("you are logged on as ann"))));
            }
        }
    }
    EXPECT_THAT(bob.hear(), IsEmpty());
    EXPECT_THAT(carl.hear(), IsEmpty());
    EXPECT_THAT(talk->log(), IsEmpty());
    EXPECT_EQ(tables(), before);
    EXPECT_THAT(talk->engine().room_members.in_room("cellar"), SizeIs(1));
}

TEST_F(SenderCheckTest, LetsPassWhoeverSpeaksForThemselvesOrWhenItIsOff)
{
    auto ann = talk->on_line("ann");
    for (const auto& [setting, name] :
        {std::pair{"True", "ann"}, {"true", "ANN"}, {"False", "bob"}, {"", "bob"}}) {
        set("VerifySender", setting);
        for (const auto& command : qz::protocol::Dispatcher::commands()) {
            for (const auto& request : variants(command, name)) {
                ann.wire().send(qz::test::envelope(request.substr(0, command.size() + 1)
                    + "sessionidvalue=" + ann.session_id() + request.substr(command.size())));
                EXPECT_THAT(ann.hear(), Each(Not(StartsWith("notice Your request")))) << setting << request;
            }
        }
    }
    EXPECT_THAT(tables(), Contains(HasSubstr("den")));
}

TEST_F(SenderCheckTest, ShowsAForeignNameCutAndHarmless)
{
    set("VerifySender", "True");
    auto ann = talk->on_line("ann");
    ann.say("typing", "screennamefrom=" + std::string(60, 'x'));
    EXPECT_THAT(ann.hear(),
        ElementsAre("notice Your request typing has been refused: it names the sender " + std::string(50, 'x')
            + ", but you are logged on as ann"));
    ann.say("typing", "screennamefrom=b\nob\x1B[2J");
    EXPECT_THAT(ann.hear(), ElementsAre(HasSubstr("the sender b\\nob\\x1b[2j, but")));
}

TEST_F(SenderCheckTest, OnlyItsRecipientConfirmsAMessage)
{
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    auto carl = talk->on_line("carl");
    const auto write = [&](const char* to, int number) {
        ann.wire().send(qz::test::envelope("msg sessionidvalue=" + ann.session_id()
                + " screennamefrom=ann receiptrequested=True screennameto=" + to + " msg=hello",
            number));
        ann.hear();
    };
    const auto confirmed = [&](qz::test::ChatClient& by, int number) {
        by.say("receipt", "msgid=" + std::to_string(number));
        return !ann.hear().empty();
    };
    set("VerifyReceipt", "True");
    write("bob", 41);
    EXPECT_FALSE(confirmed(carl, 41));
    EXPECT_FALSE(confirmed(ann, 41)) << "not even its sender";
    EXPECT_TRUE(confirmed(bob, 41));
    // Two clients drew one number: each message is its recipient's.
    write("bob", 42);
    write("carl", 42);
    EXPECT_TRUE(confirmed(carl, 42));
    EXPECT_TRUE(confirmed(bob, 42));
    // The same while the messages wait in the queue.
    for (const auto* to : {"bob", "carl"}) {
        talk->engine().message_queue.QueueMessage_Put(
            {"ann", to, "hello", 43, "", true, talk->engine().start_time.plus_months(1), ""}, true);
    }
    EXPECT_FALSE(confirmed(ann, 43));
    EXPECT_TRUE(confirmed(carl, 43));
    EXPECT_TRUE(confirmed(bob, 43));
    set("VerifyReceipt", "False");
    write("bob", 44);
    EXPECT_TRUE(confirmed(carl, 44)) << "without the safeguard anybody confirms";
}
