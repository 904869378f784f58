// A user's own automatic reply, as the client, the table and the log see it.
#include "protocol/AutoReplyRequests.h"

#include "support/Talk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// "_" stands for BlankSubstitute, which reads badly in a literal.
std::string wire(std::string text)
{
    std::replace(text.begin(), text.end(), '_', '\x1F');
    return text;
}

class AutoReplyRequestsTest : public testing::Test {
protected:
    AutoReplyRequestsTest()
    {
        talk->add_user("ann");
        talk->start();
        client.emplace(talk->on_line("ann"));
        talk->engine().auto_replies.Update_AutoReply("bob", "not yours", true);
        talk->log();
    }

    std::unique_ptr<qz::test::Talk> talk = qz::test::talk_in_memory();
    std::optional<qz::test::ChatClient> client;
};

} // namespace

TEST_F(AutoReplyRequestsTest, IsSavedAndGivenBack)
{
    client->say("autoreply", "action=check screenname=ann");
    EXPECT_THAT(client->hear(), ElementsAre("autoreply action=get status=False message="));
    EXPECT_THAT(talk->log(), ElementsAre("AutoReply check for ann [ann, 192.0.2.10]"));
    const struct {
        const char* status;
        const char* message;
        const char* given_back; // "status=… message=…"
    } cases[] = {
        {"True", "out_to lunch = until_2", "status=True message=out_to_lunch_=_until_2"},
        {"false", "", "status=False message="},
        {"1", "it's_#1", "status=True message=it's_#1"},
        {"", "x'_OR_'1'='1", "status=False message=x'_OR_'1'='1"},
        {"on", "a\x02z", "status=False message=a\xEF\xBF\xBDz"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        client->say("autoreply",
            wire(std::string("action=update screenname=ANN status=") + c.status + " message=" + c.message));
        EXPECT_THAT(client->hear(), ElementsAre("autoreply action=save answer=yes"));
        EXPECT_THAT(talk->log(), ElementsAre("AutoReply save OK for ann [ann, 192.0.2.10]"));
        client->say("autoreply", "action=check screenname=Ann");
        EXPECT_THAT(client->hear(), ElementsAre(wire(std::string("autoreply action=get ") + c.given_back)));
        talk->log();
    }
    EXPECT_EQ(talk->engine().auto_replies.Retrieve_AutoReplyMessage("bob"), "not yours");
}

TEST_F(AutoReplyRequestsTest, ANameWithAQuoteReachesNoRow)
{
    for (const auto* name : {"x'_or_'1'='1", "o'neil", "bob'", "bob'--"}) {
        SCOPED_TRACE(name);
        client->say("autoreply", wire(std::string("action=check screenname=") + name));
        client->say(
            "autoreply", wire(std::string("action=update status=0 message=hacked screenname=") + name));
        EXPECT_THAT(client->hear(),
            ElementsAre("autoreply action=get status=False message=", "autoreply action=save answer=no"));
    }
    EXPECT_TRUE(talk->engine().auto_replies.Retrieve_AutoReply("bob"));
    EXPECT_EQ(talk->engine().auto_replies.Retrieve_AutoReplyMessage("bob"), "not yours");
}

TEST_F(AutoReplyRequestsTest, NothingElseIsAnswered)
{
    for (const auto* body :
        {"action=get screenname=ann", "action=Update screenname=ann status=True message=x",
            "action= screenname=ann", "screenname=ann", ""}) {
        client->say("autoreply", body);
        EXPECT_THAT(client->hear(), IsEmpty()) << body;
        EXPECT_THAT(talk->log(), IsEmpty()) << body;
    }
    EXPECT_FALSE(talk->engine().auto_replies.Retrieve_AutoReply("ann"));
}

TEST_F(AutoReplyRequestsTest, AFailureIsAnsweredWithNo)
{
    talk->engine().database.ClosedbConnection();
    client->say("autoreply", "action=update screenname=ann status=True message=x");
    EXPECT_THAT(client->hear(), ElementsAre("autoreply action=save answer=no"));
    EXPECT_THAT(talk->log(), testing::Contains("AutoReply save NO for ann [ann, 192.0.2.10]"));
    client->say("autoreply", "action=check screenname=ann");
    EXPECT_THAT(client->hear(), ElementsAre("autoreply action=get status=False message="));
}
