#include "protocol/Dispatcher.h"

#include "support/Conversation.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

namespace {

class DispatcherTest : public testing::Test {
protected:
    DispatcherTest()
    {
        server.start();
        peer = server.client();
        server.events.list.clear();
    }
    Texts replies_to(const std::string& message)
    {
        server.engine.dispatcher.HandleIncoming(peer->number(), message, 5, "");
        return take(*peer);
    }
    Texts take(qz::test::MemoryPeer& from)
    {
        server.settle();
        return qz::test::messages_in(from.take());
    }

    qz::test::TestEngine server;
    std::optional<qz::test::MemoryPeer> peer;
    qz::config::Settings& settings = server.engine.settings;
};

} // namespace

TEST_F(DispatcherTest, AnswersEcho)
{
    EXPECT_THAT(replies_to("echo"), ElementsAre("echo "));
    EXPECT_THAT(replies_to("echo a=b msg=echo"), ElementsAre("echo "));
    for (const auto* message : {"ECHO", "Echo", " echo", "echox", "", "x echo", "notice", "session"}) {
        EXPECT_THAT(replies_to(message), IsEmpty()) << message;
    }
    EXPECT_THAT(server.events.take(), ElementsAre("Outgoing", "Outgoing"))
        << "what is unknown is not even logged";
}

TEST_F(DispatcherTest, RefusesWhatThePolicyForbids)
{
    settings.set_AdminScreenName("the boss");
    const std::string file =
        "notice File Transfer not allowed by internal policy. Please contact the boss for support";
    const std::string screen =
        "notice ScreenShot not allowed by internal policy. Please contact the boss for support";
    auto other = server.client();
    EXPECT_THAT(replies_to("filetransfer action=request"), IsEmpty());
    EXPECT_THAT(replies_to("screentransfer action=request"), IsEmpty());
    settings.set_AllowFileTransfer(0);
    EXPECT_THAT(replies_to("filetransfer action=request"), ElementsAre(file));
    EXPECT_THAT(replies_to("screentransfer action=request"), IsEmpty());
    settings.set_AllowSnapShot(0);
    EXPECT_THAT(replies_to("screentransfer action=answer"), ElementsAre(screen));
    settings.set_AllowFileTransfer(-1);
    EXPECT_THAT(replies_to("filetransfer"), IsEmpty());
    EXPECT_THAT(take(other), IsEmpty()) << "nobody else is told";
}

TEST_F(DispatcherTest, TellsEverybodyOnLine)
{
    server.engine.announcements.Send_MessageToAllActive("hello");
    EXPECT_THAT(server.events.take(), ElementsAre("Log No message was sent"));
    auto bert = server.client_on_line("bert", "2");
    auto ann = server.client_on_line("ann", "1");
    server.events.list.clear();
    server.engine.announcements.Send_MessageToAllActive("hello again");
    EXPECT_THAT(take(ann), ElementsAre("notice hello again"));
    EXPECT_THAT(take(bert), ElementsAre("notice hello again"));
    EXPECT_THAT(take(*peer), IsEmpty());
    EXPECT_THAT(server.events.take_starting("Log "), ElementsAre("Log 2 messages have been sent correctly"));
}
