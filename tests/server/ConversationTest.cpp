// What a client sends and what it receives, over sockets in memory and over real ones.
#include "support/Conversation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using qz::test::Dialogue;

namespace {

const std::string kNotAuthorized = "0< logon You are not authorized to use this server. Please log on again!";

struct Case {
    std::string name;
    Dialogue dialogue;
};

const std::vector<Case> kCases{
    {"RefusesAStranger",
        {"0 connects", "0> msg screennameto=ann msg=hi", kNotAuthorized, "0< logon answer=no", "0 ends"}},
    {"RefusesAWrongSession",
        {"0 connects", "0 is ann", "0> echo sessionidvalue=1{session}", kNotAuthorized, "0< logon answer=no",
            "0 ends"}},
    {"ForeignSessionsDoNotCount",
        {"0 connects", "1 connects", "1 is bert", "0 is ann", "1> echo sessionidvalue={session}", "1< echo ",
            "0> echo ", kNotAuthorized, "0< logon answer=no", "0 ends", "1> echo sessionidvalue={session}",
            "1< echo "}},
    {"AStrangerMayAsk",
        {"0 connects", "0> chunkreceived ", "0> lastversion ", "0> logonx ", kNotAuthorized,
            "0< logon answer=no", "0 ends"}},
    {"Echoes",
        {"0 connects", "0 is ann", "0> echo sessionidvalue={session}", "0< echo ",
            "0> ECHO sessionidvalue={session}", "0> echo sessionidvalue={session} myIP=10.0.0.1",
            "0< echo "}},
    {"TakesChunksInAnyOrder",
        {"0 connects", "0 is ann", "0[3,1,2]> echo sessionidvalue={session} msg=a longer text", "0< echo ",
            "0[1]> echo sessionidvalue={session}", "0< echo ",
            "0[4,4,3,2,1,1]> echo sessionidvalue={session}", "0> echo sessionidvalue={session}", "0< echo "}},
    {"ObeysThePolicy",
        {"0 connects", "1 connects", "0 is ann", "1 is bert",
            "0> filetransfer sessionidvalue={session} screennameto=bert action=request",
            "0< notice File Transfer not allowed by internal policy. Please contact boss for support",
            "0[2,1]> screentransfer sessionidvalue={session} screennameto=bert action=request",
            "0< notice ScreenShot not allowed by internal policy. Please contact boss for support",
            "1> echo sessionidvalue={session}", "1< echo "}},
};

class Conversation : public testing::TestWithParam<Case> {
protected:
    static void run(const std::unique_ptr<qz::test::Stage>& stage)
    {
        auto& settings = stage->engine().settings;
        settings.set_AdminScreenName("boss");
        settings.set_AllowFileTransfer(0);
        settings.set_AllowSnapShot(0);
        play(*stage, GetParam().dialogue);
    }
};

} // namespace

TEST_P(Conversation, InMemory)
{
    run(qz::test::memory_stage());
}

TEST_P(Conversation, OverLoopback)
{
    run(qz::test::loopback_stage());
}

INSTANTIATE_TEST_SUITE_P(
    Dialogues, Conversation, testing::ValuesIn(kCases), [](const auto& each) { return each.param.name; });
