#include "config/SettingTable.h"
#include "config/Deployment.h"

#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <string>

using qz::config::complaint_about;
using qz::config::Deployment;
using qz::config::find_setting;
using qz::config::IniFile;
using qz::config::setting_table;

TEST(SettingTable, FindsEveryRowByItsName)
{
    for (const auto& row : setting_table()) {
        const std::string name = std::string(row.section) + "/" + std::string(row.key);
        EXPECT_EQ(find_setting(name), &row) << name << " stands twice";
        EXPECT_FALSE(row.description.empty()) << name;
        EXPECT_FALSE(complaint_about(row, row.init)) << name;
    }
    EXPECT_NE(find_setting("general setup/LISTENINGPORT"), nullptr);
    EXPECT_NE(find_setting("SMTP SetUp/SMTP PassWord"), nullptr);
    EXPECT_EQ(find_setting("ListeningPort"), nullptr);
    EXPECT_EQ(find_setting("Mail/ListeningPort"), nullptr);
    EXPECT_EQ(find_setting(""), nullptr);
}

TEST(SettingTable, SaysWhatIsWrongAndWhatIsAllowed)
{
    const struct {
        const char* name;
        std::string value;
        const char* complaint; // part of it; nullptr when the value is good
    } cases[] = {
        {"General SetUp/ListeningPort", "", nullptr},
        {"General SetUp/ListeningPort", "65535", nullptr},
        {"General SetUp/ListeningPort", "65536", R"(from 1 to 65535, not "65536")"},
        {"General SetUp/ListeningPort", "0", "from 1 to 65535"},
        {"General SetUp/ListeningPort", "20x\x1b[2J", R"(not "20x\x1b[2J")"},
        {"General SetUp/ListeningPort", "99999999999999999999", "from 1 to 65535"},
        {"General SetUp/Client relative delay", "-32768", nullptr},
        {"Policy/AllowAOLIM", "False", nullptr},
        {"Policy/AllowAOLIM", "false", "True or False"},
        {"Policy/AllowAOLIM", "1", "True or False"},
        {"Safeguards/VerifySender", "oN", nullptr},
        {"Safeguards/VerifySender", "yes", nullptr},
        {"Safeguards/VerifySender", "0", nullptr},
        {"Safeguards/VerifySender", "yes no", "True or False"},
        {"Safeguards/VerifySender", "2", "True or False"},
        {"Storage/Provider", "ODBC", nullptr},
        {"Storage/Provider", "odb", "embedded odbc"},
        {"Storage/Provider", "embedded odbc", "embedded odbc"},
        {"Transport/ListenAddress", "All", nullptr},
        {"Transport/ListenAddress", "10.0.0.255", nullptr},
        {"Transport/ListenAddress", "fe80::1%eth0", nullptr},
        {"Transport/ListenAddress", "::", nullptr},
        {"Transport/ListenAddress", "10.0.0.256", "IP address"},
        {"Transport/ListenAddress", "10.0.0", "IP address"},
        {"Transport/ListenAddress", "10.0.0.1.", "IP address"},
        {"Transport/ListenAddress", "10.0.0.1.2", "IP address"},
        {"Transport/ListenAddress", "example.org", "IP address"},
        {"Test/iniTest", std::string(253, 'x'), nullptr},
        {"Test/iniTest", std::string(254, 'x'), "too long"},
        {"Test/iniTest", "a\nb", "one line"},
        {"DB SetUp/dbPassword", std::string(146, 'x'), nullptr},
        {"DB SetUp/dbPassword", std::string(147, 'x'), "too long"},
        {"DB SetUp/dbPassword", "{v1}" + std::string(249, 'x'), nullptr},
    };
    for (const auto& each : cases) {
        const auto* row = find_setting(each.name);
        ASSERT_NE(row, nullptr) << each.name;
        const auto complaint = complaint_about(*row, each.value);
        ASSERT_EQ(complaint.has_value(), each.complaint != nullptr) << each.name << " " << each.value;
        if (complaint) {
            EXPECT_NE(complaint->find(each.complaint), std::string::npos) << *complaint;
        }
    }
    EXPECT_EQ(complaint_about(*find_setting("DB SetUp/dbPassword"), std::string(200, 's'))->find("sss"),
        std::string::npos)
        << "a secret is not repeated";
}

TEST(Deployment, MissingOrMalformedLeavesTheEngineAsItIs)
{
    const qz::test::TemporaryFolder folder;
    IniFile ini(folder / "x.ini");
    const Deployment deployment(ini);
    for (const char* text : {"", "nonsense", "-1", "70000000000", "0"}) {
        ini.edit([&](qz::config::IniDocument& document) {
            for (const auto& row : setting_table()) {
                if (row.type != qz::config::SettingType::Address) {
                    document.write(row.section, row.key, text);
                }
            }
        });
        EXPECT_EQ(deployment.provider(), qz::platform::Provider::Embedded) << text;
        EXPECT_EQ(deployment.durability(), qz::platform::Durability::Process) << text;
        EXPECT_FALSE(deployment.tls_port() || deployment.web_port() || deployment.max_connections()
            || deployment.max_connections_per_address() || deployment.logon_time())
            << text;
        EXPECT_EQ(deployment.mail_port(), 25) << text;
        EXPECT_EQ(deployment.room_slots(), 0) << text;
        EXPECT_FALSE(deployment.verify_sender() || deployment.keep_until_confirmed()
            || deployment.durable_queue() || deployment.logon_throttle()
            || deployment.daily_jobs_once_per_day() || deployment.hide_passwords()
            || deployment.verify_receipt() || deployment.end_revoked_sessions()
            || deployment.inactivity_by_last_logon() || deployment.inactivity_guard()
            || deployment.clock_guard() || deployment.status_length())
            << text;
    }
    EXPECT_EQ(deployment.listen_address(), "");
    EXPECT_EQ(deployment.web_address(), "127.0.0.1");
}

TEST(Deployment, ANewFileSwitchesOnWhatItSays)
{
    const qz::test::TemporaryFolder folder;
    IniFile ini(folder / "x.ini");
    ini.edit([](qz::config::IniDocument& document) {
        for (const auto& row : setting_table()) {
            if (!row.init.empty()) {
                document.write(row.section, row.key, row.init);
            }
        }
    });
    const Deployment deployment(ini);
    EXPECT_EQ(deployment.listen_address(), "");
    EXPECT_FALSE(deployment.tls_port());
    EXPECT_EQ(deployment.web_port(), 2080);
    EXPECT_EQ(deployment.web_address(), "127.0.0.1");
    EXPECT_EQ(deployment.max_connections(), 20000);
    EXPECT_EQ(deployment.max_connections_per_address(), 200);
    EXPECT_EQ(deployment.logon_time(), std::chrono::seconds(60));
    EXPECT_EQ(deployment.room_slots(), 1000);
    EXPECT_TRUE(deployment.verify_sender() && deployment.keep_until_confirmed() && deployment.durable_queue()
        && deployment.logon_throttle() && deployment.daily_jobs_once_per_day() && deployment.hide_passwords()
        && deployment.verify_receipt() && deployment.end_revoked_sessions()
        && deployment.inactivity_by_last_logon() && deployment.inactivity_guard()
        && deployment.clock_guard());
    for (const char* word : {"true", "Yes", "ON", "1"}) {
        ini.WriteIniValue("Safeguards", "VerifySender", "False");
        EXPECT_FALSE(deployment.verify_sender()) << word;
        ini.WriteIniValue("Safeguards", "VerifySender", word);
        EXPECT_TRUE(deployment.verify_sender()) << word;
    }
    EXPECT_EQ(deployment.status_length(), 200);
    ini.WriteIniValue("Transport", "ListenAddress", "10.0.0.999");
    EXPECT_EQ(deployment.listen_address(), "10.0.0.999") << "a mistake must not open all addresses";
    ini.WriteIniValue("Storage", "Provider", "ODBC");
    EXPECT_EQ(deployment.provider(), qz::platform::Provider::Odbc);
}
