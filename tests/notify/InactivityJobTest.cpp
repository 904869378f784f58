#include "notify/InactivityJob.h"

#include "store/Statements.h"
#include "support/MemoryStore.h"
#include "support/RecordingMailer.h"

#include <gtest/gtest.h>

using qz::store::tables::kLog;
using qz::store::tables::kUsers;
using Texts = std::vector<std::string>;

namespace {

// Today is Monday, 2 March 2026, nine o'clock.
class InactivityJobTest : public testing::Test, protected qz::test::MemoryStore {
protected:
    InactivityJobTest()
    {
        add(kUsers,
            {{"UserName", "boss"}, {"FirstName", "Bea"}, {"LastName", "Boss"}, {"Email", "boss@x.org"}});
        settings.set_AdminScreenName("boss");
        settings.set_ClientInactivityDaysBeforeDisabling(30);
    }
    /// An account whose oldest log row is that many days old, and which has a newer one.
    void user(const std::string& name, int days_ago, const std::string& email)
    {
        add(kUsers, {{"UserName", name}, {"FirstName", "F-" + name}, {"Email", email}});
        log(name, days_ago);
        log(name, 0);
        directory.SetUsers();
    }
    void log(const std::string& name, int days_ago)
    {
        add(kLog, {{"UserName", name}, {"ActionTime", clock.now().plus_seconds(-86400LL * days_ago)}});
    }
    Texts run()
    {
        record.mails.clear();
        job.run();
        Texts sent;
        for (const auto& each : record.mails) {
            sent.push_back(each.recipient + " " + each.subject);
        }
        return sent;
    }
    Texts disabled()
    {
        Texts names;
        for (const auto& each : directory.users()) {
            if (!each.AccountActive) {
                names.push_back(each.UserName);
            }
        }
        return names;
    }

    qz::test::MailRecord record;
    qz::notify::Mail mail{[this](qz::platform::MailerEvents& events) { return record.create(events); },
        accounts, settings, deployment, journal};
    qz::notify::NoticeMails mails{mail, accounts, settings, clock};
    qz::store::ActivityLog activity_log{database, settings, parser, journal};
    qz::store::LastActivity activity{database, journal};
    qz::store::LastLogOns last_log_ons{database, deployment, clock, journal};
    qz::notify::InactivityRule rule{activity, last_log_ons, settings, deployment, clock};
    qz::notify::InactivityJob job{{rule, database, activity_log}, settings, accounts, mails, clock, journal};
};

} // namespace

TEST_F(InactivityJobTest, TellsEachUserWhatIsDue)
{
    user("d22", 22, "d22@x.org");
    user("d23", 23, "d23@x.org");
    user("d29", 29, "d29@x.org");
    user("d30", 30, "d30@x.org");
    user("d99", 99, "d99@x.org");
    user("silent", 40, "");
    add(kUsers, {{"UserName", "never"}, {"Email", "never@x.org"}});
    EXPECT_EQ(run(),
        (Texts{"d99@x.org VELTO account is expired!", "boss@x.org VELTO for d99 account is expired!",
            "boss@x.org VELTO for silent account is expired!", "d30@x.org VELTO account is expired!",
            "boss@x.org VELTO for d30 account is expired!", "d29@x.org VELTO account is expiring!",
            "d23@x.org VELTO account is expiring!"}));
    EXPECT_EQ(disabled(), (Texts{"d30", "d99", "silent"}));
    Texts lines;
    for (const auto& line : journal.lines) {
        lines.push_back(line.message + line.user_name);
    }
    EXPECT_EQ(lines,
        (Texts{"Expired account email sent to d99", "Expired account email sent to silent",
            "Expired account email sent to d30", "Expiring account warning email sent to d29",
            "Expiring account warning email sent to d23"}));
    EXPECT_TRUE(journal.failures.empty());
}

TEST_F(InactivityJobTest, WritesTheNoticesLineByLine)
{
    user("anna", 29, "anna@x.org");
    user("bert", 31, "bert@x.org");
    run();
    const std::string line(90, '-');
    const auto text = [&](const std::string& first_name, const std::string& lines) {
        return "Hi " + first_name + ", this is an automatic message!\r\n" + line + "\r\n" + lines
            + "For any information you may contact the VELTO administrator\r\n"
              "Name          : Bea Boss\r\nScreen name   : boss\r\nEmail         : boss@x.org\r\n"
              "Now it's      : Monday, 22 March 2026 ; 00:00 at 09:00:00\r\n"
            + line + "\r\n";
    };
    ASSERT_EQ(record.mails.size(), 3U);
    const auto expired =
        text("F-bert", "Your VELTO account has been disabled because of too much inactivity!\r\n");
    EXPECT_EQ(record.mails[0].body, expired);
    EXPECT_EQ(record.mails[1].body, expired);
    EXPECT_EQ(record.mails[2].body,
        text("F-anna",
            "It looks you are not using VELTO since 29 days!\r\nPlease note in 1 days your account will be "
            "disabled if you will not use it again!\r\n"));
    EXPECT_EQ(record.mails[2].sender, "boss@x.org");
}

TEST_F(InactivityJobTest, TellsAgainOnEveryRunWhoeverIsDue)
{
    user("anna", 25, "anna@x.org");
    user("bert", 45, "bert@x.org");
    const auto first = run();
    EXPECT_EQ(first.size(), 3U);
    EXPECT_EQ(run(), first);
    EXPECT_EQ(run(), first);
    record.refuses = true; // a lost mail changes nothing for the next user
    EXPECT_EQ(run(), Texts{});
    EXPECT_EQ(journal.failures.size(), 3U);
}

TEST_F(InactivityJobTest, AsksNothingWhileNobodyIsDueAndNothingChanges)
{
    user("anna", 22, "anna@x.org");
    EXPECT_EQ(run(), Texts{});
    queries = 0;
    EXPECT_EQ(run(), Texts{});
    EXPECT_EQ(queries, 0);

    activity_log.Write2dbLog("New status for anna: away", "anna", "");
    activity_log.Write2dbLog("Now on line: 1", "", "");
    queries = 0;
    EXPECT_EQ(run(), Texts{});
    EXPECT_EQ(queries, 0) << "the engine's own lines make nobody inactive";

    // Each of these alone makes somebody due.
    settings.set_ClientInactivityDaysBeforeDisabling(29);
    EXPECT_EQ(run(), Texts{"anna@x.org VELTO account is expiring!"});
    settings.set_ClientInactivityDaysBeforeDisabling(30);
    EXPECT_EQ(run(), Texts{});
    log("anna", 23);
    EXPECT_EQ(run(), Texts{"anna@x.org VELTO account is expiring!"});
    database.remove(kLog, 5);
    EXPECT_EQ(run(), Texts{});
    log("late", 50);
    EXPECT_EQ(run(), Texts{});
    add(kUsers, {{"UserName", "late"}});
    EXPECT_EQ(run(), Texts{"boss@x.org VELTO for late account is expired!"});
    database.remove(kUsers, 3);
    EXPECT_EQ(run(), Texts{});
    clock.advance(std::chrono::hours(24));
    EXPECT_EQ(run(), Texts{"anna@x.org VELTO account is expiring!"});
}

TEST_F(InactivityJobTest, CountsFromTheLastLogOnWhereItIsAskedTo)
{
    ini.WriteIniValue("Safeguards", "InactivityByLastLogon", "True");
    const auto logged_on = [&](const char* name, int days_ago, bool enabled = true) {
        add(kUsers,
            {{"UserName", name}, {"Email", std::string(name) + "@x.org"}, {"AccountActive", enabled}});
        add(qz::store::tables::kLastLogOn,
            {{"UserName", name}, {"LogOnTime", clock.now().plus_seconds(-86400LL * days_ago)}});
        log(name, 99); // its log says something else
    };
    logged_on("d22", 22);
    logged_on("d23", 23);
    logged_on("d30", 30);
    logged_on("gone", 90, false);
    user("o'never", 99, "never@x.org");
    directory.SetUsers();
    EXPECT_EQ(run(),
        (Texts{"d30@x.org VELTO account is expired!", "boss@x.org VELTO for d30 account is expired!",
            "d23@x.org VELTO account is expiring!"}));
    EXPECT_EQ(disabled(), (Texts{"d30", "gone"}));
    EXPECT_EQ(run(), Texts{"d23@x.org VELTO account is expiring!"}) << "who is disabled is told once";
    last_log_ons.logged_on("d23");
    EXPECT_EQ(run(), Texts{});
    clock.advance(std::chrono::hours(24 * 22));
    last_log_ons.logged_on("d22");
    last_log_ons.logged_on("boss");
    EXPECT_EQ(run(), Texts{}) << "who has never logged on counts from the first run";
    clock.advance(std::chrono::hours(24));
    EXPECT_EQ(
        run(), (Texts{"d23@x.org VELTO account is expiring!", "never@x.org VELTO account is expiring!"}));
    EXPECT_TRUE(journal.failures.empty());
    ini.DeleteIniEntry("Safeguards", "InactivityByLastLogon");
    last_log_ons.logged_on("d23");
    EXPECT_EQ(column(qz::store::tables::kLastLogOn, "LogOnTime").at(1), "2026-03-02 09:00:00")
        << "without the safeguard nothing is written";
}

TEST_F(InactivityJobTest, GuardNeverDisablesTheAdministratorNorManyAtOnce)
{
    ini.WriteIniValue("Safeguards", "InactivityGuard", "True");
    log("boss", 99);
    settings.set_AdminScreenName("BOSS");
    for (int i = 0; i < 53; ++i) {
        add(kUsers, {{"UserName", "in use " + std::to_string(i)}});
    }
    for (const auto* name : {"a", "b", "c", "d", "e", "f"}) {
        user(name, 60, "");
    }
    add(kUsers, {{"UserName", "warned"}, {"Email", "warned@x.org"}});
    log("warned", 25);
    add(kUsers, {{"UserName", "off"}, {"AccountActive", false}}); // counts for neither
    log("off", 99);
    directory.SetUsers();

    // Six of 61 enabled accounts are disabled, six of 59 are not.
    accounts.set_ScreenName_Enabled("in use 1", false);
    accounts.set_ScreenName_Enabled("in use 2", false);
    const Texts held{"warned@x.org VELTO account is expiring!", "boss@x.org VELTO disabled no accounts"};
    EXPECT_EQ(run(), held);
    EXPECT_EQ(disabled(), (Texts{"in use 1", "in use 2", "off"}));
    const auto& body = record.mails.back().body;
    for (const auto* words : {"6 of 59 accounts", "30 days", "velto-server inactivity --dry-run",
             "velto-server inactivity --apply"}) {
        EXPECT_NE(body.find(words), std::string::npos) << words;
    }
    const auto lines = journal.lines.size();
    EXPECT_EQ(run(), Texts{held.front()}) << "once a day, also where the job runs with every tick";
    EXPECT_EQ(journal.lines.size(), lines + 1);
    clock.advance(std::chrono::hours(24));
    EXPECT_EQ(run(), held);

    accounts.set_ScreenName_Enabled("in use 1", true);
    accounts.set_ScreenName_Enabled("in use 2", true);
    EXPECT_EQ(run().size(), 8U) << "the administrator is told of each";
    EXPECT_EQ(disabled(), (Texts{"a", "b", "c", "d", "e", "f", "off"}));
    EXPECT_TRUE(journal.failures.empty());
}

TEST_F(InactivityJobTest, GuardLetsAHandfulBeDisabledWhateverTheirShare)
{
    ini.WriteIniValue("Safeguards", "InactivityGuard", "True");
    for (const auto* name : {"a", "b", "c", "d", "e"}) {
        user(name, 60, "");
    }
    run();
    EXPECT_EQ(disabled(), (Texts{"a", "b", "c", "d", "e"}));
}

TEST_F(InactivityJobTest, IsOffWithoutALimit)
{
    user("anna", 99, "anna@x.org");
    for (const std::int16_t limit : {std::int16_t{0}, std::int16_t{-1}}) {
        settings.set_ClientInactivityDaysBeforeDisabling(limit);
        queries = 0;
        EXPECT_EQ(run(), Texts{});
        EXPECT_EQ(queries, 0);
    }
}

TEST_F(InactivityJobTest, AFailedQueryIsNotTakenForNobody)
{
    user("anna", 99, "anna@x.org");
    database.ClosedbConnection();
    EXPECT_EQ(run(), Texts{});
    EXPECT_EQ(journal.failures.size(), 1U);
    EXPECT_EQ(run(), Texts{});
    EXPECT_EQ(journal.failures.size(), 2U) << "the next run tries again";
}
