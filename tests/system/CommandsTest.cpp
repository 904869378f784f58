// The administration commands of the real program: what they print, how they end, what they leave behind.
#include "support/OtherProgram.h"
#include "system/Person.h"
#include "system/ServerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using namespace qz;
using test::Person;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

class CommandsTest : public testing::Test {
protected:
    /// Runs `status --json` until a figure has the value, for two seconds at most.
    nlohmann::json status_when(const std::string& figure, int value)
    {
        nlohmann::json status;
        for (int tries = 0; tries < 40; ++tries) {
            const int code = server.run({"status", "--json"}); // 3 until the server has started
            status = nlohmann::json::parse(server.output, nullptr, false);
            if (status.value(figure, -1) == value) {
                EXPECT_EQ(code, 0);
                return status;
            }
            std::this_thread::sleep_for(50ms); // the server writes its file once a second
        }
        ADD_FAILURE() << figure << " is not " << value << ": " << status;
        return status;
    }

    /// The server's log once it has the words, after five seconds at most.
    std::string log_with(const std::string& words) const
    {
        for (int tries = 0; tries < 100 && server.log().find(words) == std::string::npos; ++tries) {
            std::this_thread::sleep_for(50ms); // the only way to wait for another process
        }
        return server.log();
    }

    void add_user(const char* name)
    {
        ASSERT_EQ(server.run({"user", "add", name, "--password-stdin"}, "it's secret\n"), 0) << server.output;
    }

    test::ServerProcess server;
};

/// One call of the program, and how it is to end.
struct Call {
    std::vector<std::string> arguments;
    std::string input;
    int exit_code;
    std::string output; // a part of it
};

} // namespace

TEST_F(CommandsTest, StatusTellsOfTheServerThatRunsNowAndOfNoOther)
{
    EXPECT_EQ(server.run({"status"}), 3);
    EXPECT_THAT(server.output, HasSubstr("no server runs in"));

    server.start();
    const auto first = status_when("accounts", 0);
    EXPECT_EQ(first.value("port", 0), server.port());
    EXPECT_THAT(first.value("database", ""), HasSubstr("VELTO.db"));
    ASSERT_EQ(server.run({"user", "add", "ada", "--password-stdin"}, "secret\n"), 0);
    status_when("accounts", 1);

    server.send_signal(SIGKILL); // the file of the killed server stays behind
    EXPECT_EQ(server.wait(), -1);
    EXPECT_EQ(server.run({"status", "--json"}), 3);
    EXPECT_THAT(server.output, HasSubstr("\"running\": false"));
    server.start();
    EXPECT_NE(status_when("accounts", 1).value("process", 0), first.value("process", 0));
}

TEST_F(CommandsTest, EndWithTheirExitCodesAndSayWhatTheyDid)
{
    const std::vector<Call> calls{
        {{"frobnicate"}, "", 2, "help"},
        {{"user", "add", "ada", "--password-stdin"}, "secret\n", 0, "ada added"},
        {{"user", "add", "Ada", "--password-stdin"}, "secret\n", 1, "taken"},
        {{"user", "add", "#ada", "--password-stdin"}, "secret\n", 2, "must not begin with #"},
        {{"user", "add", "ben", "--password-stdin"}, "\n", 2, "must not be empty"},
        {{"user", "add", "ad\u202ea", "--password-stdin"}, "x\n", 2, "cannot be seen"},
        {{"user", "add", "ad\u200ba", "--password-stdin"}, "x\n", 2, "\\xe2\\x80\\x8b"},
        {{"user", "add", "ada\x1b", "--password-stdin"}, "x\n", 2, "\\x1b"},
        {{"user", "add", "\u00a0\u3000", "--password-stdin"}, "x\n", 2, "blank"},
        {{"user", "add", "دانا", "--password-stdin"}, "x\n", 0, "دانا added"},
        {{"user", "disable", "دانا"}, "", 0, "disabled"},
        {{"user", "show", "ADA", "--json"}, "", 0, "\"enabled\": true"},
        {{"inactivity"}, "", 2, "--dry-run"},
        {{"inactivity", "--dry-run"}, "", 0, "The job is off"},
        {{"inactivity", "--apply", "--dry-run"}, "", 2, "excludes"},
        {{"inactivity", "--apply", "--yes"}, "", 0, "The job is off"},
        {{"config", "set", "General SetUp/ClientInactivityDaysBeforeDisabling", "30"}, "", 0, ""},
        {{"inactivity", "--dry-run"}, "", 0, "count  ada: no logon is known"},
        {{"inactivity", "--dry-run", "--json"}, "", 0, "\"counted_from\": \"lastlogon\""},
        {{"user", "disable", "ada"}, "", 0, "disabled"},
        {{"inactivity", "--dry-run"}, "", 0, "Nobody would be warned"},
        {{"user", "list"}, "", 0, "disabled"},
        {{"user", "list", "--names"}, "", 0, "ada\n"},
        {{"user", "password", "nobody", "--password-stdin"}, "x\n", 1, "there is no account"},
        {{"room", "add", "Tea", "--owner", "nobody"}, "", 1, "no account"},
        {{"room", "add", "Tea", "--owner", "ada"}, "", 0, "tea added"},
        {{"room", "add", "tea", "--owner", "ada"}, "", 1, "exists already"},
        {{"room", "list", "--json"}, "", 0, "\"owner\": \"ada\""},
        {{"room", "delete", "TEA"}, "", 0, "deleted"},
        {{"room", "delete", "tea"}, "", 1, "there is no room"},
        {{"config", "set", "Mail/Port", "70000"}, "", 2, "from 1 to 65535"},
        {{"config", "set", "Mail/Port", "2525"}, "", 0, ""},
        {{"config", "get", "mail/port"}, "", 0, "2525"},
        {{"config", "get", "Mail/Pott"}, "", 2, "no setting"},
        {{"config", "set", "DB SetUp/dbPassword", "seen"}, "", 2, "secret"},
        {{"config", "set", "DB SetUp/dbPassword"}, "unseen\n", 0, ""},
        {{"config", "get", "DB SetUp/dbPassword"}, "", 0, "********"},
        {{"command", "message", "anybody?"}, "", 3, "nothing was written"},
        {{"command", "logoff"}, "", 2, "NAME"},
        {{"run", "--log-format", "xml"}, "", 2, "xml"},
        {{"backup", (server.home() / "VELTO.db").string(), "--force"}, "", 2, "file of the server itself"},
        {{"check", "--home", "/nowhere"}, "", 78, "no home folder"},
    };
    for (const auto& call : calls) {
        SCOPED_TRACE(testing::PrintToString(call.arguments));
        EXPECT_EQ(server.run(call.arguments, call.input), call.exit_code) << server.output;
        EXPECT_THAT(server.output, HasSubstr(call.output));
    }
}

TEST_F(CommandsTest, InactivityIsAppliedByHandWhereTheJobDisablesNobody)
{
    std::string sql = "INSERT INTO lastlogon (username, logontime) VALUES ('boss', '2020-01-01 10:00:00')";
    add_user("boss");
    for (const auto* name : {"a", "b", "c", "d", "e", "f"}) {
        add_user(name);
        sql += ", ('" + std::string(name) + "', '2020-01-01 10:00:00')";
    }
    test::OtherProgram(server.home() / "VELTO.db").run(sql);
    for (const auto& [key, value] : std::map<std::string, std::string>{
             {"AdminScreenName", "boss"}, {"ClientInactivityDaysBeforeDisabling", "30"}}) {
        ASSERT_EQ(server.run({"config", "set", "General SetUp/" + key, value}), 0) << server.output;
    }
    EXPECT_EQ(server.run({"inactivity", "--dry-run"}), 0);
    EXPECT_THAT(server.output,
        AllOf(HasSubstr("disable  a: last logon"), Not(HasSubstr("boss")), HasSubstr("6 of 7 accounts"),
            HasSubstr("velto-server inactivity --apply")));
    EXPECT_EQ(server.run({"inactivity", "--dry-run", "--json"}), 0);
    EXPECT_TRUE(nlohmann::json::parse(server.output).at("held").get<bool>());
    EXPECT_EQ(server.run({"inactivity", "--apply"}), 2) << "nobody is there to answer";
    EXPECT_THAT(server.output, HasSubstr("--yes"));
    EXPECT_EQ(server.run({"user", "show", "a"}), 0);
    EXPECT_THAT(server.output, HasSubstr("enabled      yes"));
    EXPECT_EQ(server.run({"inactivity", "--apply", "--yes"}), 0) << server.output;
    EXPECT_THAT(server.output, HasSubstr("6 accounts disabled"));
    EXPECT_EQ(server.run({"user", "show", "a"}), 0);
    EXPECT_THAT(server.output, HasSubstr("enabled      no"));
    EXPECT_EQ(server.run({"user", "show", "boss"}), 0);
    EXPECT_THAT(server.output, HasSubstr("enabled      yes"));
    EXPECT_EQ(server.run({"log", "-n", "1"}), 0);
    EXPECT_THAT(server.output, HasSubstr("Expired account email sent to f"));
    EXPECT_EQ(server.run({"inactivity", "--apply", "--yes"}), 0) << server.output;
    EXPECT_THAT(server.output, HasSubstr("Nobody is due"));
}

TEST_F(CommandsTest, APasswordIsEncodedBeforeTheServerStarts)
{
    const auto stored = [&](const std::string& password) {
        EXPECT_EQ(server.run({"call", "VerifyCredentials", "ada", password}), 0);
        EXPECT_THAT(server.output, HasSubstr("\"result\":true"));
        test::OtherProgram database(server.home() / "VELTO.db");
        return database.run("SELECT Password FROM users WHERE UserName = 'ada'").at(0);
    };
    add_user("ada");
    EXPECT_THAT(stored("it's secret"), testing::StartsWith("{v1}"));
    ASSERT_EQ(server.run({"user", "password", "ada", "--password-stdin"}, "it's other\n"), 0);
    EXPECT_THAT(stored("it's other"), testing::StartsWith("{v1}"));
}

TEST_F(CommandsTest, CheckNamesThePlaceAndChangesNothing)
{
    using std::filesystem::perms;
    const auto finding = [&](const std::string& part) {
        const auto answer = nlohmann::json::parse(server.output);
        for (const auto& each : answer.at("findings")) {
            if (each.at("text").get<std::string>().find(part) != std::string::npos) {
                return each.value("kind", "") + " " + each.value("section", "") + "/" + each.value("key", "");
            }
        }
        return "nothing about it in " + server.output;
    };
    EXPECT_EQ(server.run({"check", "--json"}), 0) << server.output;
    EXPECT_EQ(finding("default administrator"), "warning General SetUp/get_WebAdministratorPassword");

    const auto settings = server.home() / "VELTO_Server.ini";
    test::put_bytes(
        settings, test::bytes_of(settings) + "[Misspelt]\nPrt=3\n[Policy]\nAllowFileTransfer=true\n");
    ASSERT_EQ(server.run({"config", "set", "General SetUp/AdminScreenName", "boss"}), 0) << server.output;
    std::filesystem::permissions(server.home() / "VELTO_Server.key", perms(0644));
    EXPECT_EQ(server.run({"check", "--json"}), 78) << server.output;
    EXPECT_EQ(finding("no such setting"), "warning Misspelt/Prt");
    EXPECT_EQ(finding("written exactly so"), "error Policy/AllowFileTransfer");
    EXPECT_EQ(finding("no account \"boss\""), "warning General SetUp/AdminScreenName");
    EXPECT_EQ(finding("chmod 600"), "warning /");

    std::filesystem::remove(server.home() / "VELTO.db");
    EXPECT_EQ(server.run({"check", "--json"}), 78);
    EXPECT_EQ(finding("there is no database"), "warning /");
    EXPECT_FALSE(std::filesystem::exists(server.home() / "VELTO.db"));
}

TEST_F(CommandsTest, ARunningServerCarriesCommandsOut)
{
    add_user("ada");
    add_user("ben");
    server.start();
    Person ada("ada", server.port(), "it's secret");
    Person ben("ben", server.port(), "it's secret");
    ASSERT_TRUE(ada.sees("logged on"));
    ASSERT_TRUE(ben.sees("logged on"));
    status_when("users_on_line", 2);

    EXPECT_EQ(server.run({"command", "message", "It's \"noon\"; 'tea' = #1"}), 0) << server.output;
    EXPECT_TRUE(ada.sees("notice It's \"noon\"; 'tea' = #1"));
    EXPECT_EQ(server.run({"command", "message", "bell\a"}), 2) << server.output;
    EXPECT_EQ(server.run({"command", "logoff", "nobody"}), 1) << server.output;
    EXPECT_EQ(server.run({"command", "logoff", "ADA"}), 0) << server.output;
    EXPECT_TRUE(ada.sees("disconnected"));
    ben.settle(); // is still there

    server.send_signal(SIGSTOP);
    const auto status = server.home() / "VELTO_Server.status"; // silent for long: two seconds, not ten
    std::filesystem::last_write_time(status, std::filesystem::last_write_time(status) - 20s);
    EXPECT_EQ(server.run({"command", "message", "late"}), 4);
    EXPECT_THAT(server.output, HasSubstr("not yet carried it out"));
    server.send_signal(SIGCONT);
    EXPECT_TRUE(ben.sees("notice late")) << "it was stored";

    EXPECT_EQ(server.run({"command", "shutdown"}), 0) << server.output;
    EXPECT_EQ(server.wait(), 0);
}

TEST_F(CommandsTest, ABackupOfARunningServerMakesANewHome)
{
    add_user("ada");
    server.start();
    const auto file = (server.home().parent_path() / "backup.tar").string();
    ASSERT_EQ(server.run({"backup", file}), 0) << server.output;
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(server.run({"backup", file}), 1) << "it is not written over unasked";
    add_user("ben"); // after the backup

    const auto restored = (server.home().parent_path() / "restored").string();
    const auto unpack = "mkdir " + restored + " && tar -xpf " + file + " -C " + restored;
    ASSERT_EQ(std::system(unpack.c_str()), 0);
    EXPECT_EQ(server.run({"user", "list", "--home", restored}), 0) << server.output;
    EXPECT_THAT(server.output, AllOf(HasSubstr("ada"), Not(HasSubstr("ben"))));
    EXPECT_EQ(server.run({"call", "--home", restored, "VerifyCredentials", "ada", "it's secret"}), 0);
    EXPECT_THAT(server.output, HasSubstr("\"result\":true"));

    EXPECT_EQ(server.run({"backup", file, "--force"}), 0) << server.output;
    const auto replaced = "rm " + restored + "/* && tar -xpf " + file + " -C " + restored;
    ASSERT_EQ(std::system(replaced.c_str()), 0);
    EXPECT_EQ(server.run({"user", "show", "ben", "--home", restored}), 0) << server.output;
    const auto left = std::filesystem::directory_iterator(server.home().parent_path());
    for (const auto& entry : left) {
        EXPECT_NE(entry.path().filename().string().front(), '.') << "a passing file was left behind";
    }
}

TEST_F(CommandsTest, TellsWhenItsDatabaseIsTakenAway)
{
    server.start();
    status_when("accounts", 0); // it has started: before, it listens and does not watch yet
    const auto file = server.home() / "VELTO.db";
    std::filesystem::rename(file, server.home() / "moved.db");
    EXPECT_THAT(log_with("VELTO.db was deleted, moved or replaced"),
        HasSubstr("VELTO.db was deleted, moved or replaced"));
    std::filesystem::rename(server.home() / "moved.db", file);
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
}

TEST_F(CommandsTest, ASafeguardThatGoesOffIsAWarning)
{
    server.start({"--log-format", "journal"});
    status_when("accounts", 0);
    ASSERT_EQ(server.run({"config", "set", "Safeguards/VerifySender", "off"}), 0) << server.output;
    EXPECT_THAT(log_with("is off now"), HasSubstr("\n<4>Setting [Safeguards] VerifySender is off now"));
}

TEST_F(CommandsTest, LogsForProgramsAndNamesTheSignals)
{
    server.start({"--log-format", "json"});
    server.send_signal(SIGHUP);
    status_when("accounts", 0);
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    std::istringstream lines(server.log());
    std::string messages;
    for (std::string line; std::getline(lines, line);) {
        const auto object = nlohmann::json::parse(line, nullptr, false);
        ASSERT_TRUE(object.is_object()) << line;
        messages += object.value("level", "") + ": " + object.value("message", "") + "\n";
    }
    EXPECT_THAT(messages,
        testing::ContainsRegex(
            "info: Service is now ready(.|\n)*info: hangup(.|\n)*info: SIGTERM: the server is asked "
            "to end(.|\n)*info: VELTOServer is shutting down"));
}
