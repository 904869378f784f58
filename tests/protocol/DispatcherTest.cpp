#include "protocol/Dispatcher.h"

#include "protocol/Announcements.h"
#include "support/Secrets.h"
#include "support/TemporaryFolder.h"
#include "support/TestNet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using qz::test::TestNet;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

namespace {

class DispatcherTest : public testing::Test {
protected:
    DispatcherTest()
    {
        net.pool.LoadSockets(10, false);
        peer = net.client();
        peer->take();
        net.journal.lines.clear();
    }
    Texts replies_to(const std::string& message)
    {
        dispatcher.HandleIncoming(1, message, 5, "");
        return take(*peer);
    }
    Texts take(qz::test::MemoryPeer& from)
    {
        net.loop.run_pending();
        Texts messages;
        for (const auto& unit : from.take_units()) {
            const auto envelope =
                dispatcher.CheckMsgIncomingRules(std::string(qz::helpers::parse_frame(unit).value().chunk));
            messages.push_back(envelope.body);
        }
        return messages;
    }

    TestNet net;
    std::optional<qz::test::MemoryPeer> peer;
    qz::test::TemporaryFolder folder;
    qz::test::Secrets secrets{folder.path()};
    qz::config::IniFile ini{folder / "settings.ini"};
    qz::config::Settings settings{ini, secrets.cipher, net.journal};
    qz::protocol::Handlers handlers{net.sender};
    qz::protocol::Dispatcher dispatcher{handlers, net.parser, net.pool, net.sender, settings, net.journal};
};

} // namespace

TEST_F(DispatcherTest, AnswersEcho)
{
    EXPECT_THAT(replies_to("echo"), ElementsAre("echo "));
    EXPECT_THAT(replies_to("echo a=b msg=echo"), ElementsAre("echo "));
    for (const auto* message : {"ECHO", "Echo", " echo", "echox", "", "x echo", "notice", "session"}) {
        EXPECT_THAT(replies_to(message), IsEmpty()) << message;
    }
    EXPECT_THAT(net.journal.failures, IsEmpty());
    EXPECT_THAT(net.journal.lines, IsEmpty()) << "what is unknown is not even logged";
}

TEST_F(DispatcherTest, RefusesWhatThePolicyForbids)
{
    settings.set_AdminScreenName("the boss");
    const std::string file =
        "notice File Transfer not allowed by internal policy. Please contact the boss for support";
    const std::string screen =
        "notice ScreenShot not allowed by internal policy. Please contact the boss for support";
    auto other = net.client();
    other.take();
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
    qz::protocol::Announcements announcements(net.connections, net.sender, net.journal);
    announcements.Send_MessageToAllActive("hello");
    auto second = net.client();
    auto stranger = net.client();
    net.connections.fill("bert", "2", second.number(), "", {});
    net.connections.fill("ann", "1", 1, "", {});
    second.take();
    stranger.take();
    net.journal.lines.erase(net.journal.lines.begin() + 1, net.journal.lines.end());
    announcements.Send_MessageToAllActive("hello again");
    EXPECT_THAT(take(*peer), ElementsAre("notice hello again"));
    EXPECT_THAT(take(second), ElementsAre("notice hello again"));
    EXPECT_THAT(take(stranger), IsEmpty());
    ASSERT_EQ(net.journal.lines.size(), 2U);
    EXPECT_EQ(net.journal.lines[0].message, "No message was sent");
    EXPECT_EQ(net.journal.lines[1].message, "2 messages have been sent correctly");
}
