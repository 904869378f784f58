#include "config/Settings.h"

#include "support/RecordingJournal.h"
#include "support/Secrets.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <string>

using qz::config::IniFile;
using qz::config::ServerSpeed;
using qz::config::Settings;

namespace {

class SettingsTest : public testing::Test {
protected:
    qz::test::TemporaryFolder folder_;
    qz::test::Secrets secrets_{folder_.path()};
    qz::test::RecordingJournal journal_;
    IniFile ini_{folder_ / "VELTO_Server.ini"};
    Settings settings_{ini_, secrets_.cipher, journal_};
};

} // namespace

TEST_F(SettingsTest, AFreshInstallationHasItsDefaults)
{
    EXPECT_EQ(settings_.get_ListeningPort(), 2001);
    EXPECT_EQ(settings_.get_LogOlderThan(), 0);
    EXPECT_EQ(settings_.get_ClientInactivityDaysBeforeDisabling(), 0);
    EXPECT_EQ(settings_.get_Client_Last_Version(), "");
    EXPECT_EQ(settings_.get_Message_Expiration_Time(), 15);
    EXPECT_EQ(settings_.get_URL_Client_Last_Version(), "http://127.0.0.1/velto/download");
    EXPECT_EQ(settings_.get_AdminScreenName(), "");
    EXPECT_EQ(settings_.get_WebAdministrator(), "Caretakership");
    EXPECT_EQ(settings_.get_WebAdministratorPassword(), "Caretakership");
    EXPECT_EQ(settings_.get_SPTMP_Server(), "");
    EXPECT_EQ(settings_.get_DBPassword(), "");
    EXPECT_EQ(settings_.get_DBODBC(), "");
    EXPECT_EQ(settings_.get_IniFile(), (folder_ / "VELTO_Server.ini").string());
    EXPECT_EQ(folder_.file_count(), 0) << "reading these makes neither settings nor key";
    EXPECT_TRUE(settings_.get_AllowAOLIM());
    EXPECT_TRUE(settings_.get_AllowFileTransfer());
    EXPECT_TRUE(settings_.get_AllowSnapShot());
    EXPECT_TRUE(settings_.get_Animation());
    EXPECT_EQ(settings_.get_ServerSpeedRead(), ServerSpeed::Normal);
    EXPECT_EQ(qz::test::bytes_of(ini_.path()),
        "[Policy]\nAllowAOLIM=True\nAllowFileTransfer=True\nAllowSnapShot=True\n\n"
        "[Setup]\nAnimation=True\nServerSpeed=1\n");
    EXPECT_TRUE(journal_.failures.empty());
}

TEST_F(SettingsTest, ReadsNumbersByTheRuleOfEach)
{
    struct Expected {
        const char* text;
        int port;
        int log;
        int expiration;
        const char* overflow; // the property that reports one
    };
    const Expected cases[] = {{"0", 2001, 0, 15, nullptr}, {"abc", 2001, 0, 15, nullptr},
        {"30 days", 30, 30, 30, nullptr}, {"-5", 0, 730, 15, "get_ListeningPort"},
        {"40000", 40000, 0, 40000, "get_LogOlderThan"}, {"65535", 65535, 0, 65535, "get_LogOlderThan"},
        {"2.5", 2, 2, 2, nullptr}};
    for (const auto& each : cases) {
        for (const char* key : {"ListeningPort", "Clear log older than", "Client Message Expiration Time"}) {
            ini_.WriteIniValue("General SetUp", key, each.text);
        }
        journal_.failures.clear();
        EXPECT_EQ(settings_.get_ListeningPort(), each.port) << each.text;
        EXPECT_EQ(settings_.get_LogOlderThan(), each.log) << each.text;
        EXPECT_EQ(settings_.get_Message_Expiration_Time(), each.expiration) << each.text;
        ASSERT_EQ(journal_.failures.size(), each.overflow == nullptr ? 0U : 1U) << each.text;
        if (each.overflow != nullptr) {
            EXPECT_EQ(journal_.failures[0].routine, each.overflow);
            EXPECT_EQ(journal_.failures[0].number, 6);
        }
    }
    ini_.WriteIniValue("General SetUp", "Client Message Expiration Time", "3000000000");
    EXPECT_EQ(settings_.get_Message_Expiration_Time(), 0) << "an overflow gives 0, not the default";
}

TEST_F(SettingsTest, WhatIsSetIsReadBack)
{
    settings_.write_ListeningPort(40001);
    EXPECT_EQ(settings_.get_ListeningPort(), 40001);
    settings_.set_LogOlderThan(90);
    EXPECT_EQ(settings_.get_LogOlderThan(), 90);
    settings_.set_ClientInactivityDaysBeforeDisabling(60);
    EXPECT_EQ(settings_.get_ClientInactivityDaysBeforeDisabling(), 60);
    settings_.set_Message_Expiration_Time(100000);
    EXPECT_EQ(settings_.get_Message_Expiration_Time(), 100000);
    settings_.set_Client_Last_Version("\" 1.5.61 \"");
    EXPECT_EQ(settings_.get_Client_Last_Version(), " 1.5.61 ") << "not trimmed";
    settings_.set_Client_Last_Version("\"  \"");
    EXPECT_EQ(settings_.get_Client_Last_Version(), "");
    settings_.Set_URL_Client_Last_Version("\" https://chat.example/get \"");
    EXPECT_EQ(settings_.get_URL_Client_Last_Version(), "https://chat.example/get");
    settings_.set_AdminScreenName("Ölaf");
    EXPECT_EQ(settings_.get_AdminScreenName(), "ölaf");
    settings_.set_ClientDelay(-3);
    EXPECT_EQ(ini_.ReadIniValue("General SetUp", "Client relative delay"), "-3");
    settings_.set_DBODBC("velto");
    EXPECT_EQ(settings_.get_DBODBC(), "velto");
    settings_.set_ServerSpeedWrite(ServerSpeed::Slow);
    EXPECT_EQ(settings_.get_ServerSpeedRead(), ServerSpeed::Slow);
    settings_.set_ServerSpeedWrite(static_cast<ServerSpeed>(7));
    EXPECT_EQ(settings_.get_ServerSpeedRead(), static_cast<ServerSpeed>(7));
    settings_.set_iniTest(std::string(300, 't'));
    EXPECT_EQ(settings_.get_iniTest(), std::string(253, 't'));
    EXPECT_TRUE(journal_.failures.empty());
}

TEST_F(SettingsTest, TheWebAdministratorsPasswordIsNotReadWhereItIsWritten)
{
    settings_.set_WebAdministrator("");
    EXPECT_EQ(ini_.ReadIniValue("General SetUp", "WebAdministrator"), "Caretakership");
    settings_.set_WebAdministrator("Wilma");
    EXPECT_EQ(settings_.get_WebAdministrator(), "Wilma");
    settings_.set_WebAdministratorPassword("geheim");
    EXPECT_EQ(settings_.get_WebAdministratorPassword(), "Caretakership");
    ini_.WriteIniValue("General SetUp", "get_WebAdministratorPassword", "by hand");
    EXPECT_EQ(settings_.get_WebAdministratorPassword(), "by hand");
    settings_.set_WebAdministratorPassword("");
    EXPECT_EQ(ini_.ReadIniValue("General SetUp", "WebAdministratorPassword"), "Caretakership");
}

TEST_F(SettingsTest, MailAndDatabaseSettingsAreEncoded)
{
    const struct {
        void (Settings::*set)(const std::string&);
        std::string (Settings::*get)() const;
        const char* section;
        const char* key;
    } properties[] = {
        {&Settings::set_SPTMP_Server, &Settings::get_SPTMP_Server, "SMTP SetUp", "SMTP Server"},
        {&Settings::set_SPTMP_UserName, &Settings::get_SPTMP_User, "SMTP SetUp", "SMTP User"},
        {&Settings::set_SPTMP_Password, &Settings::get_SPTMP_Password, "SMTP SetUp", "SMTP PassWord"},
        {&Settings::set_DBServerIP, &Settings::get_DBServerIP, "DB SetUp", "dbServerIP"},
        {&Settings::set_DBUserName, &Settings::get_DBUserName, "DB SetUp", "dbUserName"},
        {&Settings::set_DBPassword, &Settings::get_DBPassword, "DB SetUp", "dbPassword"},
    };
    const auto stored = [&](const auto& each) {
        return ini_.ReadIniValue(each.section, each.key);
    };
    for (const auto& each : properties) {
        (settings_.*each.set)(" Käse's;=\" ");
        EXPECT_TRUE(stored(each).starts_with("{v1}")) << each.key;
        EXPECT_EQ(secrets_.cipher.Decode(stored(each)), " Käse's;=\" ") << each.key;
        EXPECT_EQ((settings_.*each.get)(), "Käse's;=\"") << each.key;
        (settings_.*each.set)("   ");
        EXPECT_EQ(secrets_.cipher.Decode(stored(each)), "***BLANK***") << each.key;
        EXPECT_EQ((settings_.*each.get)(), "") << each.key;
        ini_.WriteIniValue(each.section, each.key, "by hand");
        EXPECT_EQ((settings_.*each.get)(), "by hand") << each.key;
    }
    EXPECT_TRUE(journal_.failures.empty());
    ini_.WriteIniValue("DB SetUp", "dbPassword", "{v1}AAAA");
    EXPECT_EQ(settings_.get_DBPassword(), "");
    ASSERT_EQ(journal_.failures.size(), 1U);
    EXPECT_EQ(journal_.failures[0].routine, "get_DBPassword");
}

TEST_F(SettingsTest, ATextThatWouldBeCutIsNotStoredEncoded)
{
    settings_.set_DBPassword(std::string(146, 'p'));
    EXPECT_EQ(settings_.get_DBPassword(), std::string(146, 'p'));
    settings_.set_DBPassword(std::string(147, 'q'));
    ASSERT_EQ(journal_.failures.size(), 1U);
    EXPECT_EQ(journal_.failures[0].routine, "set_DBPassword");
    EXPECT_EQ(settings_.get_DBPassword(), std::string(146, 'p'));
}

TEST_F(SettingsTest, BooleansAreTheTwoWordsExactly)
{
    for (const char* text : {"False", "true", "1", "-1", "yes"}) {
        ini_.WriteIniValue("Policy", "AllowFileTransfer", text);
        EXPECT_FALSE(settings_.get_AllowFileTransfer()) << text;
        EXPECT_EQ(ini_.ReadIniValue("Policy", "AllowFileTransfer"), text);
    }
    settings_.set_AllowFileTransfer(-1);
    EXPECT_TRUE(settings_.get_AllowFileTransfer());
    for (const std::int16_t neither : std::initializer_list<std::int16_t>{1, 2, -2, 255}) {
        settings_.set_AllowFileTransfer(0);
        settings_.set_AllowFileTransfer(neither);
        EXPECT_EQ(ini_.ReadIniValue("Policy", "AllowFileTransfer"), "False") << neither;
    }
    settings_.set_Animation(0);
    settings_.set_AllowSnapShot(0);
    settings_.set_AllowAOLIM(0);
    EXPECT_FALSE(settings_.get_Animation() || settings_.get_AllowSnapShot() || settings_.get_AllowAOLIM());
}

TEST_F(SettingsTest, AWriteThatFailsIsSilent)
{
    IniFile nowhere(folder_.path() / "missing" / "VELTO_Server.ini");
    Settings settings(nowhere, secrets_.cipher, journal_);
    settings.set_LogOlderThan(5);
    settings.set_DBPassword("x");
    EXPECT_TRUE(settings.get_AllowAOLIM());
    EXPECT_EQ(settings.get_ServerSpeedRead(), ServerSpeed::Normal);
    EXPECT_EQ(settings.get_LogOlderThan(), 0);
    EXPECT_TRUE(journal_.failures.empty());
}
