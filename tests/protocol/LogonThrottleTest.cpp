#include "protocol/LogonThrottle.h"

#include "config/IniFile.h"
#include "support/Conversation.h"
#include "support/ManualClock.h"
#include "support/RecordingJournal.h"
#include "support/Talk.h"
#include "support/TemporaryFolder.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

using Failure = qz::protocol::LogonThrottle::Failure;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::SizeIs;

namespace {

class LogonThrottleTest : public testing::Test {
protected:
    LogonThrottleTest() { ini.WriteIniValue("Safeguards", "LogonThrottle", "True"); }

    /// So many wrong passwords, each as soon as it is judged.
    std::chrono::seconds fail(int times, const std::string& name, const std::string& address)
    {
        std::chrono::seconds waited{0};
        for (; times > 0; --times) {
            if (const auto wait = throttle.wait(name, address)) {
                clock.advance(*wait);
                waited += *wait;
                EXPECT_FALSE(throttle.wait(name, address)) << "a wait ends";
            }
            throttle.failed(Failure::Password, name, address);
        }
        return waited;
    }

    qz::test::ManualClock clock;
    qz::test::TemporaryFolder folder;
    qz::config::IniFile ini{folder / "x.ini"};
    qz::config::Deployment deployment{ini};
    qz::test::RecordingJournal journal;
    qz::protocol::KnownPlaces places{folder / "places", journal};
    qz::protocol::LogonThrottle throttle{places, deployment, clock, journal};
};

} // namespace

TEST_F(LogonThrottleTest, WaitsGrowForANameFromManyAddresses)
{
    for (int i = 0; i < 5; ++i) {
        throttle.failed(Failure::Password, "ann", "192.0.2." + std::to_string(i));
    }
    EXPECT_FALSE(throttle.wait("ann", "192.0.2.99"));
    for (const auto expected : {1s, 2s, 4s, 8s, 16s, 32s, 60s, 60s}) {
        throttle.failed(Failure::Password, "Ann", "192.0.2.99");
        const auto wait = throttle.wait("ANN", "198.51.100.1");
        ASSERT_TRUE(wait);
        EXPECT_NEAR(static_cast<double>(wait->count()), static_cast<double>(expected.count()), 4)
            << expected.count();
        clock.advance(*wait - 1s);
        EXPECT_TRUE(throttle.wait("ann", "198.51.100.1"));
        throttle.failed(Failure::Early, "ann", "198.51.100.1"); // does not count
        clock.advance(1s);
        EXPECT_FALSE(throttle.wait("ann", "198.51.100.1"));
    }
    EXPECT_FALSE(throttle.wait("bob", "198.51.100.1")) << "others are not held up";
}

TEST_F(LogonThrottleTest, WaitsGrowForAnAddressWithManyNames)
{
    for (int i = 0; i < 10; ++i) {
        throttle.failed(
            i % 2 == 0 ? Failure::UnknownName : Failure::Disabled, "x" + std::to_string(i), "2001:db8::1");
    }
    EXPECT_FALSE(throttle.wait("ann", "2001:db8::1"));
    throttle.failed(Failure::UnknownName, "y", "2001:db8:0:0:77::9");
    EXPECT_EQ(throttle.wait("ann", "2001:db8::1"), 1s) << "one network is one address";
    EXPECT_FALSE(throttle.wait("ann", "2001:db8:0:1::1"));
    const auto waited = fail(12, "ann", "2001:db8::1");
    EXPECT_GT(waited, 900s);
    EXPECT_LE(throttle.wait("ann", "2001:db8::1").value_or(0s), 900s);
    clock.advance(900s);
    EXPECT_FALSE(throttle.wait("ann", "2001:db8::1")) << "nobody is kept out for good";
    clock.advance(24h);
    fail(10, "bob", "2001:db8::1");
    EXPECT_FALSE(throttle.wait("carl", "2001:db8::1")) << "failures are forgotten";
}

TEST_F(LogonThrottleTest, OthersCannotKeepAUserOutOfAKnownPlace)
{
    throttle.succeeded("ann", "192.0.2.7");
    for (int i = 0; i < 30; ++i) {
        throttle.failed(Failure::Password, "ann", "198.51.100.1");
        throttle.failed(Failure::Password, "bob", "192.0.2.7"); // somebody in the same house
    }
    EXPECT_TRUE(throttle.wait("ann", "198.51.100.1"));
    EXPECT_TRUE(throttle.wait("bob", "192.0.2.7"));
    EXPECT_FALSE(throttle.wait("ann", "192.0.2.7"));
    fail(6, "ann", "192.0.2.7");
    EXPECT_EQ(throttle.wait("ann", "192.0.2.7"), 1s) << "but their own failures count there";
}

TEST_F(LogonThrottleTest, ARestartForgetsNoKnownPlace)
{
    const auto file = folder / "places";
    const auto after_restart = [&](const std::string& name, const std::string& address) {
        qz::protocol::KnownPlaces again(file, journal);
        qz::protocol::LogonThrottle restarted(again, deployment, clock, journal);
        for (int i = 0; i < 30; ++i) {
            restarted.failed(Failure::Password, "ann", "198.51.100.1");
            restarted.failed(Failure::Password, "bob lee", "198.51.100.1");
        }
        return restarted.wait(name, address);
    };
    throttle.succeeded("Ann", "192.0.2.7");
    throttle.succeeded("bob lee", "2001:db8::1");
    throttle.succeeded("x\n192.0.2.9 ann", "192.0.2.8"); // cannot forge a line
    EXPECT_FALSE(after_restart("ANN", "192.0.2.7"));
    EXPECT_FALSE(after_restart("bob lee", "2001:db8::2"));
    EXPECT_TRUE(after_restart("ann", "192.0.2.8"));
    EXPECT_TRUE(after_restart("ann", "192.0.2.9"));
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(file).permissions(), perms::owner_read | perms::owner_write);
    const auto size = std::filesystem::file_size(file);
    throttle.succeeded("ann", "192.0.2.7");
    EXPECT_EQ(std::filesystem::file_size(file), size) << "what is known is not written again";
    for (std::size_t i = 0; i < qz::protocol::KnownPlaces::kMostPlaces - 1; ++i) {
        throttle.succeeded("ann", "203.0.113." + std::to_string(i));
    }
    EXPECT_FALSE(after_restart("ann", "192.0.2.7"));
    throttle.succeeded("ann", "203.0.113.99");
    EXPECT_TRUE(after_restart("ann", "192.0.2.7")) << "the sixteen latest are kept";
    EXPECT_FALSE(after_restart("ann", "203.0.113.0"));
    std::ofstream(file, std::ios::app) << "\n\n \nx\n192.0.2.55 \n\xFF\xFE 192.0.2.56 ann";
    EXPECT_FALSE(after_restart("ann", "203.0.113.0"));
    EXPECT_TRUE(journal.failures.empty());
}

TEST_F(LogonThrottleTest, APlaceThatCannotBeStoredIsReportedOnceAndKept)
{
    qz::protocol::KnownPlaces unwritable(folder / "no" / "places", journal);
    unwritable.add("ann", "192.0.2.7");
    unwritable.add("bob", "192.0.2.7");
    EXPECT_TRUE(unwritable.knows("ann", "192.0.2.7"));
    EXPECT_FALSE(unwritable.knows("ann", "192.0.2.8"));
    EXPECT_TRUE(unwritable.has_users("192.0.2.7"));
    EXPECT_THAT(journal.failures, SizeIs(1));
}

TEST_F(LogonThrottleTest, AStrangerInAnOfficeDoesNotLockOutNewcomers)
{
    throttle.succeeded("ann", "192.0.2.7");
    const auto strangers = [&](int count) {
        for (int i = 0; i < count; ++i) {
            throttle.failed(Failure::UnknownName, "x" + std::to_string(i), "192.0.2.7");
            throttle.failed(Failure::UnknownName, "x" + std::to_string(i), "198.51.100.1");
        }
    };
    strangers(14);
    EXPECT_FALSE(throttle.wait("bob", "192.0.2.7"));
    EXPECT_TRUE(throttle.wait("bob", "198.51.100.1")) << "nobody is known there";
    strangers(86);
    EXPECT_FALSE(throttle.wait("bob", "192.0.2.7"));
    strangers(50);
    EXPECT_EQ(throttle.wait("bob", "192.0.2.7"), 60s) << "and no longer";
    EXPECT_FALSE(throttle.wait("ann", "192.0.2.7"));
}

TEST_F(LogonThrottleTest, WaitsDoNotTellWhichNamesExist)
{
    throttle.succeeded("ann", "192.0.2.7");
    for (const auto* address : {"192.0.2.7", "198.51.100.1"}) {
        for (const auto failure : {Failure::UnknownName, Failure::Disabled, Failure::Password}) {
            const auto name = std::string(address) + " " + std::to_string(static_cast<int>(failure));
            for (int i = 0; i < 5; ++i) {
                EXPECT_FALSE(throttle.wait(name, "203.0.113.9")) << name;
                throttle.failed(failure, name, address);
            }
            EXPECT_FALSE(throttle.wait(name, "203.0.113.9")) << name;
            throttle.failed(failure, name, address);
            EXPECT_EQ(throttle.wait(name, "203.0.113.9"), 1s) << name;
        }
    }
}

TEST_F(LogonThrottleTest, ForgetsTheLongestUnusedWhenThereAreTooMany)
{
    throttle.succeeded("ann", "192.0.2.7");
    for (int i = 0; i < 12'000; ++i) {
        clock.advance(1s);
        throttle.failed(
            Failure::UnknownName, "x", "198.51." + std::to_string(i / 200) + "." + std::to_string(i % 200));
        if (i == 5'000) {
            fail(11, "bob", "203.0.113.9");
        }
    }
    EXPECT_EQ(throttle.records(), qz::protocol::LogonThrottle::kMostRecords);
    EXPECT_FALSE(throttle.wait("carl", "198.51.0.0"));
}

TEST_F(LogonThrottleTest, LogsEachFailureInOneForm)
{
    throttle.failed(Failure::Password, "ann", "192.0.2.7");
    throttle.failed(Failure::UnknownName, std::string(99, 'x'), "::1");
    throttle.failed(Failure::Early, "a\nLogon refused: address=10.0.0.1", "192.0.2.8");
    ini.WriteIniValue("Safeguards", "LogonThrottle", "False");
    throttle.failed(Failure::Disabled, "bob", "192.0.2.7");
    std::vector<std::string> lines;
    for (const auto& line : journal.lines) {
        lines.push_back(line.message);
    }
    EXPECT_THAT(lines,
        ElementsAre("Logon refused: address=192.0.2.7 reason=password name=ann",
            "Logon refused: address=::1 reason=unknown name=" + std::string(50, 'x'),
            "Logon refused: address=192.0.2.8 reason=early name=a\\nLogon refused: address=10.0.0.1"));
}

TEST_F(LogonThrottleTest, MailsOfAWholeDayAreBounded)
{
    int mails = 0;
    for (int minute = 0; minute < 24 * 60; ++minute) {
        for (int tries = 0; tries < 20; ++tries) {
            mails += throttle.may_mail() ? 1 : 0;
        }
        clock.advance(1min);
    }
    EXPECT_EQ(mails, 10 + 239) << "ten at once, then one every six minutes";
}

TEST(LogonThrottleConversation, RefusesWithoutJudgingAndMailsNoMoreThanTen)
{
    qz::test::TestEngine server;
    auto& engine = server.engine;
    qz::test::add_row(engine.database, qz::store::tables::kUsers,
        {{"UserName", "ann"}, {"Password", "secret"}, {"Email", "ann@example.test"}});
    server.start();
    engine.settings.set_AdminScreenName("ann");
    engine.settings.set_SPTMP_Server("mail.example.test");
    const auto log_on = [&](const std::string& name, const std::string& password) {
        auto peer = server.client("192.0.2.10");
        peer.send(
            qz::test::envelope("logon screenname=" + name + " password=" + password + " sessionidvalue=1"));
        server.settle();
        return qz::test::messages_in(peer.take());
    };
    for (int i = 0; i < 15; ++i) {
        log_on("x1", "x");
    }
    EXPECT_EQ(server.machine.mail.mails.size(), 15U) << "without the safeguard";
    engine.ini.WriteIniValue("Safeguards", "LogonThrottle", "True");
    for (int i = 0; i < 11; ++i) {
        log_on("y" + std::to_string(i), "x");
    }
    EXPECT_EQ(server.machine.mail.mails.size(), 25U);
    EXPECT_THAT(log_on("x1", "x"),
        ElementsAre("notice Too many logons have failed; try again in 1 second", "logon answer=no"));
    server.machine.clock().advance(std::chrono::seconds(1));
    EXPECT_THAT(log_on("x1", "x"), testing::IsEmpty()) << "judged again: an unknown name gets no answer";
    server.machine.clock().advance(std::chrono::hours(1));
    log_on("x1", "x");
    EXPECT_EQ(server.machine.mail.mails.size(), 26U);
}
