#include "notify/Mail.h"

#include "store/Statements.h"
#include "support/MemoryStore.h"
#include "support/RecordingMailer.h"

#include <gtest/gtest.h>

using qz::store::tables::kUsers;

namespace {

class SendEmailTest : public testing::Test, protected qz::test::MemoryStore {
protected:
    SendEmailTest() { settings.set_SPTMP_Server("mail.example.org"); }
    /// @return the sender that was used, as the caller sees it.
    std::string send(const std::string& recipient, std::string from = {})
    {
        mail.SendEmail(recipient, "Hello", "A body", from);
        return from;
    }
    void administrator_is(const char* email)
    {
        add(kUsers, {{"UserName", "zoe"}, {"Email", "zoe@example.org"}});
        add(kUsers, {{"UserName", "boss"}, {"Email", email}});
        settings.set_AdminScreenName("Boss");
        directory.SetUsers();
    }

    qz::test::MailRecord record;
    qz::notify::Mail mail{[this](qz::platform::MailerEvents& events) { return record.create(events); },
        accounts, settings, deployment, journal};
};

} // namespace

TEST_F(SendEmailTest, SendsNothingToABlankRecipient)
{
    EXPECT_EQ(send("   "), "");
    EXPECT_TRUE(record.mails.empty());
    EXPECT_TRUE(journal.failures.empty());
}

TEST_F(SendEmailTest, FindsTheSender)
{
    EXPECT_EQ(send("anna@example.org"), "velto@localhost") << "no administrator at all";
    administrator_is("  ");
    EXPECT_EQ(send("anna@example.org"), "velto@localhost") << "one without an address";
    database.update(kUsers, 2, {{"Email"}, {" boss@example.org "}});
    directory.SetUsers();
    EXPECT_EQ(send("anna@example.org"), "boss@example.org");
    EXPECT_EQ(send("anna@example.org", "host@example.org"), "host@example.org");
    std::string senders;
    for (const auto& each : record.mails) {
        senders += each.sender + " ";
    }
    EXPECT_EQ(senders, "velto@localhost velto@localhost boss@example.org host@example.org ");
}

TEST_F(SendEmailTest, HandsServerAndPortToTheComponent)
{
    send(" anna@example.org ");
    ini.WriteIniValue("Mail", "Port", "2525");
    send("bert@example.org");
    ASSERT_EQ(record.mails.size(), 2U);
    EXPECT_EQ(record.mails[0].recipient, "anna@example.org");
    EXPECT_EQ(record.mails[0].subject + "/" + record.mails[0].body, "Hello/A body");
    EXPECT_EQ(record.mails[0].server, "mail.example.org");
    EXPECT_EQ(record.mails[0].port, 25);
    EXPECT_EQ(record.mails[1].port, 2525);
}

TEST_F(SendEmailTest, ReportsFailuresWheneverTheyCome)
{
    record.refuses = true;
    EXPECT_EQ(send("anna@example.org"), "velto@localhost");
    record.fail("later");
    ASSERT_EQ(journal.failures.size(), 2U);
    EXPECT_EQ(journal.failures[0].routine + ": " + journal.failures[0].description, "SendEmail: refused");
    EXPECT_EQ(journal.failures[1].routine + ": " + journal.failures[1].description, "SendEmail: later");
}
