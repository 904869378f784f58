#include "notify/VersionNotices.h"
#include "notify/OncePerDay.h"
#include "notify/VersionMails.h"

#include "net/NetEvents.h"
#include "store/Statements.h"
#include "support/ManualLoop.h"
#include "support/MemorySockets.h"
#include "support/MemoryStore.h"
#include "support/RecordingMailer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <vector>

using qz::notify::is_newer;
using qz::store::tables::kLog;
using qz::store::tables::kUsers;
using testing::HasSubstr;
using Texts = std::vector<std::string>;

namespace {

constexpr const char* kSection = "LastDateSentEmail_NewVersion";

class VersionMailsTest : public testing::Test, protected qz::test::MemoryStore {
protected:
    VersionMailsTest()
    {
        settings.set_Client_Last_Version("1.05.0");
        settings.Set_URL_Client_Last_Version("http://x.org/get");
        settings.set_ClientInactivityDaysBeforeDisabling(30);
    }
    void user(
        const std::string& name, const qz::platform::Value& client, int days_ago = 1, bool enabled = true)
    {
        add(kUsers,
            {{"UserName", name}, {"FirstName", "F-" + name}, {"Email", name + "@x.org"},
                {"IMClientInUse", client}, {"AccountActive", enabled}});
        add(kLog, {{"UserName", name}, {"ActionTime", clock.now().plus_seconds(-86400LL * days_ago)}});
        directory.SetUsers();
    }
    Texts run()
    {
        record.mails.clear();
        mails.CheckOldVersions();
        Texts recipients;
        for (const auto& each : record.mails) {
            EXPECT_EQ(each.subject, "VELTO new version available!");
            recipients.push_back(each.recipient);
        }
        return recipients;
    }

    qz::test::MailRecord record;
    qz::notify::Mail mail{[this](qz::platform::MailerEvents& events) { return record.create(events); },
        accounts, settings, deployment, journal};
    qz::notify::NoticeMails notices{mail, accounts, settings, clock};
    qz::store::LastActivity activity{database, journal};
    qz::store::LastLogOns last_log_ons{database, deployment, clock, journal};
    qz::notify::InactivityRule rule{activity, last_log_ons, settings, deployment, clock};
    qz::notify::VersionMails mails{{database, accounts, rule}, ini, settings, notices, clock, journal};
};

} // namespace

TEST(VersionComparison, LooksAtMajorAndMinorOnly)
{
    const struct {
        const char* latest;
        const char* in_use;
        bool newer;
    } cases[] = {
        {"1.05.0", "1.04.3", true},
        {"1.05.12", "1.05.9", false},
        {"2.0.0", "1.9.9", true},
        {"1.9.0", "2.0.0", false},
        {"1.10.0", "1.9.0", true}, // numbers, not texts
        {"1.2.9", "1.2.0", false},
        {"1.x.0", "1.0.0", false}, // x is 0
        {"1.1.0", "x.y.z", true},
        {"1.1.0.7", "1.0.0.9", true}, // what follows the third part does not count
        {"1.1", "1.0.0", false},
        {"1.1.0", "1.0", false},
        {"1.1.0", "", false},
        {"32768.0.0", "1.0.0", false},
        {"1.1.0", "0.0.99999999999999999999", false},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(is_newer(each.latest, each.in_use), each.newer) << each.latest << " over " << each.in_use;
    }
}

TEST_F(VersionMailsTest, TellsEnabledActiveUsersOfOldClients)
{
    user("zoe", "1.04.3");
    user("anna", "1.04.3");
    user("new", "1.05.0");
    user("unknown", {});
    user("off", "1.0.0", 1, false);
    user("edge", "1.0.0", 29);
    user("gone", "1.0.0", 30);
    add(kUsers, {{"UserName", "never"}, {"IMClientInUse", "1.0.0"}, {"Email", "never@x.org"}});
    EXPECT_EQ(run(), (Texts{"anna@x.org", "edge@x.org", "zoe@x.org"}));
    EXPECT_EQ(ini.ReadIniValue(kSection, "anna"), "02/03/2026");
    EXPECT_EQ(ini.ReadIniValue(kSection, "gone"), "");
    EXPECT_EQ(journal.lines.at(0).message, "New version available email sent to anna");
    EXPECT_THAT(record.mails.at(0).body,
        HasSubstr("Hi F-anna, this is an automatic message!\r\n" + std::string(90, '-')
            + "\r\nIt looks you are running a very old version of VELTO!\r\n"
              "Now is available for the download the version 1.05.0\r\n"
              "Here where to download latest version: http://x.org/get\r\n"
              "Please consider to upgrade your copy of VELTO!\r\n"
              "For any information you may contact the VELTO administrator\r\n"));
    EXPECT_EQ(run(), Texts{});
    EXPECT_TRUE(journal.failures.empty());
}

TEST_F(VersionMailsTest, TellsAgainAfterSixteenDays)
{
    const std::pair<const char*, bool> told[] = {
        {"15/02/2026", false},                       // 15 days ago
        {"14/02/2026", true}, {"02/03/2027", false}, // days ahead are not days that lie between
        {"2026-03-02", true},                        // no date of ours
    };
    user("anna", "1.04.3");
    for (const auto& [date, sends] : told) {
        ini.WriteIniValue(kSection, "anna", date);
        EXPECT_EQ(run().size(), sends ? 1U : 0U) << date;
    }
}

TEST_F(VersionMailsTest, AsksTheLastLogonWhereInactivityDoes)
{
    user("anna", "1.04.3", 1); // the log knows of yesterday, the last logon is older
    user("bert", "1.04.3", 40);
    user("carl", "1.04.3", 1); // has never logged on since logons are kept
    for (const auto& [name, days] : {std::pair("anna", 30), std::pair("bert", 29)}) {
        add(qz::store::tables::kLastLogOn,
            {{"UserName", name}, {"LogOnTime", clock.now().plus_seconds(-86400LL * days)}});
    }
    ini.WriteIniValue("Safeguards", "InactivityByLastLogon", "True");
    EXPECT_EQ(run(), Texts{"bert@x.org"});
    EXPECT_TRUE(journal.failures.empty());
    // A logon alone is news for the job.
    add(qz::store::tables::kLastLogOn, {{"UserName", "carl"}, {"LogOnTime", clock.now()}});
    EXPECT_EQ(run(), Texts{"carl@x.org"});
    ini.WriteIniValue("Safeguards", "InactivityByLastLogon", "False");
    EXPECT_EQ(run(), Texts{"anna@x.org"});
}

TEST_F(VersionMailsTest, KeepsTheDateOfAMailThatFailed)
{
    user("anna", "1.04.3");
    record.refuses = true;
    run();
    EXPECT_EQ(ini.ReadIniValue(kSection, "anna"), "02/03/2026");
    record.refuses = false;
    clock.advance(std::chrono::hours(24));
    EXPECT_EQ(run(), Texts{});
}

TEST_F(VersionMailsTest, SendsNothingWithoutVersionOrLimit)
{
    user("anna", "1.04.3");
    settings.set_Client_Last_Version("");
    queries = 0;
    EXPECT_EQ(run(), Texts{});
    EXPECT_EQ(queries, 0);
    settings.set_Client_Last_Version("2.0.0");
    settings.set_ClientInactivityDaysBeforeDisabling(0);
    EXPECT_EQ(run(), Texts{});
}

TEST_F(VersionMailsTest, AsksNothingWhileNothingChanges)
{
    user("anna", "1.04.3");
    EXPECT_EQ(run().size(), 1U);
    run(); // the first one has written the date
    queries = 0;
    EXPECT_EQ(run(), Texts{});
    EXPECT_EQ(queries, 0);
    ini.DeleteIniEntry(kSection, "anna");
    EXPECT_EQ(run(), Texts{"anna@x.org"});
    run();
    user("bert", "1.04.3");
    EXPECT_EQ(run(), Texts{"bert@x.org"});
    run();
    clock.advance(std::chrono::hours(24 * 16));
    EXPECT_EQ(run(), (Texts{"anna@x.org", "bert@x.org"}));
}

TEST_F(VersionMailsTest, SafeguardLetsEachJobRunOnceADay)
{
    qz::notify::OncePerDay once(deployment, ini, clock);
    EXPECT_TRUE(once.may_run("Inactivity"));
    EXPECT_TRUE(once.may_run("Inactivity")) << "without the safeguard every tick is a run";
    ini.WriteIniValue("Safeguards", "DailyJobsOncePerDay", "True");
    EXPECT_TRUE(once.may_run("Inactivity"));
    EXPECT_FALSE(once.may_run("Inactivity"));
    EXPECT_TRUE(once.may_run("ClientVersions"));
    qz::notify::OncePerDay after_restart(deployment, ini, clock);
    EXPECT_FALSE(after_restart.may_run("Inactivity"));
    clock.advance(std::chrono::hours(15));
    EXPECT_TRUE(after_restart.may_run("Inactivity")) << "midnight has passed";
    EXPECT_FALSE(after_restart.may_run("Inactivity"));
}

TEST_F(VersionMailsTest, AClockThatIsSetBackNeitherRepeatsADailyJobNorStopsItForGood)
{
    ini.WriteIniValue("Safeguards", "DailyJobsOncePerDay", "True");
    struct Step {
        const char* day;
        bool runs;
    };
    const std::vector<Step> cases[] = {
        {{"2026-03-02", true}, {"2026-03-03", true}, {"2026-03-02", false}, {"2026-03-03", false},
            {"2026-03-04", true}},
        {{"2026-03-02", true}, {"2027-04-06", true}, {"2026-03-02", false}, {"2026-03-03", true},
            {"2026-03-04", true}},
        {{"2026-03-02", true}, {"2026-03-01", false}, {"2026-03-02", false}, {"2026-03-03", true}},
    };
    for (const bool restarts : {false, true}) {
        for (const auto& steps : cases) {
            ini.DeleteIniEntry("DailyJobs", "Inactivity");
            std::optional<qz::notify::OncePerDay> once(std::in_place, deployment, ini, clock);
            for (const auto& [day, runs] : steps) {
                clock.set_now(qz::DateTime::parse(day).value().plus_seconds(36000));
                if (restarts) {
                    once.emplace(deployment, ini, clock);
                }
                EXPECT_EQ(once->may_run("Inactivity"), runs) << day << " of " << steps.size();
                EXPECT_FALSE(once->may_run("Inactivity")) << day;
            }
        }
    }
}

namespace {

class VersionNoticesTest : public VersionMailsTest,
                           public qz::net::TrafficEvents,
                           public qz::platform::ServerSocketEvents,
                           public qz::platform::ClientSocketEvents {
protected:
    void traffic(qz::net::Direction /*direction*/) override { }
    void new_connection_requested(const std::string& /*address*/) override { }
    void connection_requested(std::int32_t request) override { sockets->accept(++last_socket, request); }
    void data_arrived(std::int16_t /*socket*/, const std::string& /*unit*/) override { }
    void closed(std::int16_t /*socket*/) override { }

    VersionNoticesTest()
    {
        sockets->load(5, false);
        server->listen();
        sender.use(sockets.get());
    }
    qz::test::MemoryPeer on_line(const std::string& name)
    {
        auto peer = network.connect();
        loop.run_pending();
        connections.fill(name, "session " + name, peer.number(), "192.0.2.10", clock.now());
        return peer;
    }

    std::int16_t last_socket = 0;
    qz::test::ManualLoop loop;
    qz::test::MemoryNetwork network{loop, clock};
    std::unique_ptr<qz::platform::ServerSocket> server = network.create_server_socket(*this);
    std::unique_ptr<qz::platform::ClientSockets> sockets = network.create_client_sockets(*this);
    qz::net::ConnectionTable connections;
    qz::net::Sender sender{parser, loop, *this, journal};
    qz::notify::VersionNotices version_notices{settings, connections, sender, journal};
};

} // namespace

TEST_F(VersionNoticesTest, TellsClientsOnLine)
{
    auto anna = on_line("anna");
    auto bert = on_line("bert");
    auto gone = on_line("gone");
    connections.release(gone.number(), clock.now());
    const auto is_told =
        HasSubstr("lastversion version=1.05.0 urlLastClientVersionAvailable=http://x.org/get");

    version_notices.send_to("bert");
    loop.run_pending();
    EXPECT_THAT(bert.take(), is_told);
    EXPECT_EQ(anna.take(), "");
    version_notices.send_to_all();
    loop.run_pending();
    EXPECT_THAT(anna.take(), is_told);
    EXPECT_THAT(bert.take(), is_told);
    EXPECT_EQ(gone.take(), "");
    Texts lines;
    for (const auto& line : journal.lines) {
        lines.push_back(line.message);
    }
    EXPECT_EQ(lines,
        (Texts{"Last version 1.05.0 sent to bert", "Last version 1.05.0 sent to anna",
            "Last version 1.05.0 sent to bert"}));
}
