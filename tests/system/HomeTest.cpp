// What the real program makes of a home that is wrong, and what it leaves alone.
#include "system/Process.h"
#include "system/ServerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using namespace qz;
using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;

namespace {

class HomeTest : public testing::Test {
protected:
    /// Bytes and time of every file; of those that the database keeps while it is open only that they are
    /// there.
    std::map<std::string, std::pair<std::string, fs::file_time_type>> all_files() const
    {
        std::map<std::string, std::pair<std::string, fs::file_time_type>> files;
        for (const auto& entry : fs::directory_iterator(server.home())) {
            const auto name = entry.path().filename().string();
            if (name.ends_with("-wal") || name.ends_with("-shm")) {
                files[name] = {};
            } else if (entry.is_regular_file()) {
                files[name] = {test::bytes_of(entry.path()), entry.last_write_time()};
            }
        }
        return files;
    }
    void run_well(const std::vector<std::string>& arguments, const std::string& input = {})
    {
        ASSERT_EQ(server.run(arguments, input), 0) << testing::PrintToString(arguments) << server.output;
    }
    void fill()
    {
        run_well({"user", "add", "ada", "--password-stdin"}, "it's secret\n");
        run_well({"room", "add", "tea", "--owner", "ada"});
        run_well({"config", "set", "DB SetUp/dbPassword"}, "unseen\n");
    }
    /// Runs the command and expects it to change no file.
    void changes_nothing(const std::vector<std::string>& arguments, int code, const std::string& input = {})
    {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const auto before = all_files();
        EXPECT_EQ(server.run(arguments, input), code) << server.output;
        const auto after = all_files();
        EXPECT_EQ(after.size(), before.size());
        for (const auto& [name, content] : before) {
            const auto found = after.find(name);
            EXPECT_TRUE(found != after.end() && found->second == content) << name << " has changed";
        }
    }
    void replace_in_settings(const std::string& what, const std::string& with)
    {
        auto text = test::bytes_of(settings());
        const auto at = text.find(what);
        ASSERT_NE(at, std::string::npos) << what;
        test::put_bytes(settings(), text.replace(at, what.size(), with));
    }
    fs::path settings() const { return server.home() / "VELTO_Server.ini"; }
    fs::path key() const { return server.home() / "VELTO_Server.key"; }

    test::ServerProcess server;
};

const std::vector<std::vector<std::string>> kReading{{"check"}, {"check", "--json"}, {"config", "list"},
    {"config", "get", "DB SetUp/dbPassword"}, {"user", "list"}, {"user", "show", "ada"}, {"room", "list"},
    {"log"}, {"db", "status"}, {"version"}};

} // namespace

TEST_F(HomeTest, ReadingChangesNothing)
{
    fill();
    for (const auto& command : kReading) {
        changes_nothing(command, 0);
    }
    const auto copy = (server.home().parent_path() / "copy.tar").string();
    changes_nothing({"backup", copy}, 0);
    changes_nothing({"status"}, 3);

    server.start();
    server.send_signal(SIGKILL); // leaves a log behind that would be copied into the database
    server.wait();
    for (const auto& command : kReading) {
        changes_nothing(command, 0);
    }
    changes_nothing({"backup", copy, "--force"}, 0);
    changes_nothing({"status"}, 3);
    run_well({"user", "enable", "ada"}); // brings it in

    auto database = test::bytes_of(server.home() / "VELTO.db");
    constexpr std::size_t kUserVersion = 63; // last byte of it, in the head of the file
    database.at(kUserVersion) = static_cast<char>(database.at(kUserVersion) - 1);
    test::put_bytes(server.home() / "VELTO.db", database);
    changes_nothing({"user", "list"}, 0);
    changes_nothing({"check"}, 0);
    EXPECT_THAT(server.output, HasSubstr("take a backup before"));
}

TEST_F(HomeTest, RunRefusesSettingsThatMeanSomethingElse)
{
    const std::pair<const char*, const char*> cases[] = {
        {"VerifySender=True", "VerifySender=Ture"},
        {"DurableQueue=True", "DurableQueue=2"},
        {"MaxConnections=", "MaxConnections=lots"},
        {"ListeningPort=", "ListeningPort=2179O"},
        {"Provider=embedded", "Provider=embeded"},
        {"VerifySender=True", "VerifySender="},
        {"VerifySender=True", "VerifySender: True"},
        {"VerifySender=True", "VerifySendr=True"},
        {"VerifySender=True", "VerifySender=True\nVerifySender=False"},
        {"[Safeguards]", "[Safeguard]"},
        {"[Safeguards]", "[Safeguards"},
    };
    const auto good = test::bytes_of(settings());
    for (const auto& [value, wrong] : cases) {
        SCOPED_TRACE(wrong);
        replace_in_settings(value, std::string(wrong) + "\n;");
        changes_nothing({"run"}, 78);
        EXPECT_THAT(server.output, HasSubstr("must be mended first"));
        EXPECT_THAT(
            server.output, HasSubstr(std::string(wrong).substr(0, std::string(wrong).find_first_of("=:"))));
        changes_nothing({"check"}, 78);
        test::put_bytes(settings(), good);
    }
    test::put_bytes(settings(), "");
    changes_nothing({"run"}, 78);
    changes_nothing({"config", "set", "Mail/Port", "26"}, 78);
    test::put_bytes(settings(), good);
    replace_in_settings("VerifySender=True", "VerifySender=on");
    replace_in_settings("DurableQueue=True", "DurableQueue=1");
    server.start();
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_THAT(server.log(), HasSubstr("default administrator password")) << "warnings are shown";
}

TEST_F(HomeTest, ConfigSetWritesNothingThatRunRefuses)
{
    for (const auto& [name, value] : std::vector<std::pair<const char*, const char*>>{
             {"Safeguards/VerifySender", ""}, {"Safeguards/VerifySender", "  "}, {"Storage/Durability", ""},
             {"General SetUp/ListeningPort", ""}, {"Policy/AllowFileTransfer", ""},
             {"Transport/TLSKey", "\"\""}}) {
        changes_nothing({"config", "set", name, value}, 2);
        EXPECT_THAT(server.output, testing::AnyOf(HasSubstr("has no value; write"), HasSubstr("must be")));
    }
    run_well({"config", "set", "General SetUp/AdminScreenName", ""});

    replace_in_settings("VerifySender=True", "VerifySender=True\nVerifySender=False");
    changes_nothing({"config", "set", "Safeguards/VerifySender", "True"}, 78);
    EXPECT_THAT(server.output, HasSubstr("with different values"));
    run_well({"config", "set", "Safeguards/RoomNames", "True"});
}

TEST_F(HomeTest, ConfigSetLeavesAFileAloneThatTheRunningServerDoesNotUse)
{
    server.start();
    const auto good = test::bytes_of(settings());
    const auto set = [&](int code) {
        SCOPED_TRACE(test::bytes_of(settings()));
        const auto before = test::bytes_of(settings());
        EXPECT_EQ(server.run({"config", "set", "Mail/Port", "26"}), code) << server.output;
        if (code != 0) {
            EXPECT_EQ(test::bytes_of(settings()), before);
        }
    };
    test::put_bytes(settings(), std::string("\x7f\0x=y\n", 6));
    set(78);
    EXPECT_THAT(server.output, HasSubstr("NUL"));
    test::put_bytes(settings(), good.substr(0, good.find("QueuedPerSender")));
    set(78);
    EXPECT_THAT(server.output, HasSubstr("not written to its end"));
    run_well({"status"});
    EXPECT_THAT(server.output, HasSubstr("not written to its end"));
    test::put_bytes(settings(), good + "[Notes]\nby=hand\n");
    set(0); // when the server has taken it over
    EXPECT_THAT(test::bytes_of(settings()), testing::AllOf(HasSubstr("by=hand"), HasSubstr("Port=26")));

    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    test::put_bytes(settings(),
        std::string(good).replace(
            good.find("VerifySender=True"), 17, std::string("VerifySender=True\0x", 19)));
    for (const auto& command :
        std::vector<std::vector<std::string>>{{"check"}, {"run"}, {"config", "set", "Mail/Port", "26"}}) {
        changes_nothing(command, 78);
        EXPECT_THAT(server.output, HasSubstr("NUL"));
    }
}

TEST_F(HomeTest, WithoutItsKeyAHomeStaysAsItIs)
{
    fill();
    server.start();
    server.send_signal(SIGTERM);
    ASSERT_EQ(server.wait(), 0);
    const auto kept = server.home().parent_path() / "kept.key";
    fs::rename(key(), kept);
    const auto secret = std::string("other secret\n");
    for (int i = 0; i < 2; ++i) { // a supervisor tries again
        changes_nothing({"run"}, 78);
        EXPECT_THAT(server.output, HasSubstr("VELTO_Server.key"));
    }
    changes_nothing({"check"}, 78);
    EXPECT_THAT(server.output, HasSubstr("the key is missing"));
    changes_nothing({"user", "list"}, 78);
    changes_nothing({"user", "add", "ben", "--password-stdin"}, 78, secret);
    changes_nothing({"config", "get", "DB SetUp/dbPassword"}, 78);
    changes_nothing({"config", "set", "DB SetUp/dbPassword"}, 78, secret);
    changes_nothing({"config", "get", "Mail/Port"}, 0);
    changes_nothing({"call", "set_DBPassword", "other"}, 78);
    changes_nothing({"call", "get_DBPassword"}, 78);
    EXPECT_THAT(server.output, HasSubstr("VELTO_Server.key"));
    run_well({"config", "set", "Mail/Port", "26"});
    EXPECT_THAT(server.output, HasSubstr("warning: the key file"));
    const auto copy = (server.home().parent_path() / "copy.tar").string();
    changes_nothing({"backup", copy}, 0);
    EXPECT_THAT(server.output, HasSubstr("warning: the key file"));
    EXPECT_FALSE(fs::exists(key()));

    const auto other = server.home().parent_path() / "other";
    ASSERT_EQ(server.run({"init", "--home", other.string()}), 0) << server.output;
    fs::copy_file(other / "VELTO_Server.key", key());
    changes_nothing({"check"}, 78);
    EXPECT_THAT(server.output, HasSubstr("the enciphered settings were not encoded with this key"));
    changes_nothing({"run"}, 78);
    const auto needs_the_key = [&] {
        for (const auto& command : std::vector<std::vector<std::string>>{
                 {"user", "add", "ben", "--password-stdin"}, {"user", "password", "ada", "--password-stdin"},
                 {"config", "set", "DB SetUp/dbPassword"}, {"call", "get_DBPassword"}}) {
            changes_nothing(command, 78, secret);
            EXPECT_THAT(server.output, HasSubstr("VELTO_Server.key"));
        }
    };
    needs_the_key();
    changes_nothing({"config", "get", "DB SetUp/dbPassword"}, 78);
    changes_nothing({"backup", copy, "--force"}, 0);
    EXPECT_THAT(server.output, HasSubstr("warning: the key file"));
    const auto good = test::bytes_of(settings());
    replace_in_settings("[DB SetUp]", "[Other]");
    changes_nothing({"user", "add", "ben", "--password-stdin"}, 78, secret);
    changes_nothing({"user", "password", "ada", "--password-stdin"}, 78, secret);
    changes_nothing({"check"}, 78);
    EXPECT_THAT(server.output, HasSubstr("the stored passwords were not encoded with this key"));
    changes_nothing({"run"}, 78);
    test::put_bytes(key(), "no key\n");
    needs_the_key();
    changes_nothing({"check"}, 78);
    EXPECT_THAT(server.output, HasSubstr("this is not a key file"));
    test::put_bytes(settings(), good);

    fs::rename(kept, key());
    run_well({"check"});
    run_well({"call", "VerifyCredentials", "ada", "it's secret"});
    EXPECT_THAT(server.output, HasSubstr("true"));
    run_well({"call", "get_DBPassword"});
    EXPECT_THAT(server.output, HasSubstr("unseen"));
}

TEST_F(HomeTest, AnEmptyNameOfAHomeIsAnError)
{
    const std::vector<std::vector<std::string>> commands{{"init"}, {"run"}, {"status"}, {"check"},
        {"config", "list"}, {"user", "list"}, {"room", "list"}, {"log"}, {"command", "policy"},
        {"call", "Version"}, {"version"}, {"backup", "x.tar"}, {"inactivity", "--dry-run"}, {"db", "init"}};
    const auto out = server.home().parent_path() / "out";
    test::put_bytes(out, "");
    for (const auto& command : commands) {
        std::vector<std::string> before{VELTO_SERVER_PROGRAM, "--home", ""};
        before.insert(before.end(), command.begin(), command.end());
        EXPECT_EQ(test::wait_for(test::spawn(before, out, out), 20s), 2) << command.front();
        std::vector<std::string> after{VELTO_SERVER_PROGRAM};
        after.insert(after.end(), command.begin(), command.end());
        after.insert(after.end(), {"--home", ""});
        EXPECT_EQ(test::wait_for(test::spawn(after, out, out), 20s), 2) << command.front();
    }
}

TEST_F(HomeTest, InitClosesTheFolderAndCheckTellsOfAnOpenOne)
{
    EXPECT_EQ(static_cast<unsigned>(fs::status(server.home()).permissions()), 0750U);
    fs::permissions(server.home(), fs::perms(0755));
    run_well({"check"});
    EXPECT_THAT(server.output, HasSubstr("can lock it"));
}

TEST_F(HomeTest, StatusNamesAnAddressThatListensAndTellsOfAServerThatDoesNotServe)
{
    run_well({"config", "set", "Transport/ListenAddress", "127.0.0.1"});
    server.start();
    auto status = nlohmann::json::object();
    for (int tries = 0; tries < 100 && !status.value("ready", false); ++tries) {
        server.run({"status", "--json"});
        status = nlohmann::json::parse(server.output);
    }
    EXPECT_EQ(status.value("address", ""), "127.0.0.1");
    EXPECT_TRUE(status.value("responds", false));
    EXPECT_THAT(server.log(), HasSubstr("ready on 127.0.0.1:" + std::to_string(server.port())));

    server.send_signal(SIGSTOP);
    const auto file = server.home() / "VELTO_Server.status";
    fs::last_write_time(file, fs::last_write_time(file) - 20s);
    EXPECT_EQ(server.run({"status"}), 3);
    EXPECT_THAT(server.output, HasSubstr("no sign of life"));
    EXPECT_EQ(server.run({"status", "--json"}), 3);
    EXPECT_FALSE(nlohmann::json::parse(server.output).value("responds", true));

    fs::remove(file); // as before its start has ended, and after its end has begun
    EXPECT_EQ(server.run({"status"}), 3);
    EXPECT_THAT(server.output, HasSubstr("not ready"));
    EXPECT_EQ(server.run({"status", "--json"}), 3);
    EXPECT_TRUE(nlohmann::json::parse(server.output).value("running", false)) << "packages wait for its end";
    server.send_signal(SIGCONT);
}
