// Three people and a server process: what users see, and what stands in the tables afterwards.
#include "platform/SystemClock.h"
#include "store/Statements.h"
#include "support/ForeignProgram.h"
#include "system/Person.h"
#include "system/ServerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using namespace qz;
using test::Person;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class ChatTest : public testing::Test {
protected:
    void SetUp() override
    {
        for (const auto* name : {"ada", "ben", "cleo"}) {
            ASSERT_EQ(server.run({"user", "add", name, "--password-stdin"}, "secret\n"), 0) << server.output;
        }
        server.start();
    }
    std::vector<std::string> messages()
    {
        platform::SystemClock clock;
        test::ForeignProgram database(server.home() / "VELTO.db", clock);
        return database.rows(store::tables::kMessages,
            {"UserName_From", "UserName_To", "Sent", "Delivered", "ReceiptRequested"});
    }

    /// How often somebody is told that the server ends, until it has ended.
    static std::ptrdiff_t farewells(Person& person)
    {
        EXPECT_TRUE(person.sees("disconnected"));
        return std::count(person.shown.begin(), person.shown.end(),
            "notice VELTOServer is shutting down, please reconnect in a few of minutes");
    }

    test::ServerProcess server;
};

} // namespace

TEST_F(ChatTest, ThreePeopleTalkAndOneComesLater)
{
    Person ada("ada", server.port());
    Person ben("ben", server.port());
    ASSERT_TRUE(ada.sees("logged on"));
    ASSERT_TRUE(ben.sees("logged on"));

    const auto first = ada.write("ben", "Hello, Ben = #1 ü", true);
    EXPECT_TRUE(ben.sees("ada: Hello, Ben = #1 ü"));
    ben.settle();
    EXPECT_TRUE(ada.sees("receipt " + std::to_string(first)));

    ben.ask(client::requests::save_auto_reply(true, "Out for lunch"));
    ada.write("ben", "Are you there?");
    EXPECT_TRUE(ada.sees("ben: Out for lunch"));
    ben.ask(client::requests::save_auto_reply(false, ""));

    ada.write("cleo", "For later 1");
    ada.write("cleo", "For later 2", true);
    EXPECT_TRUE(ada.sees("notice You are sending a message to cleo that looks to be offline"));
    Person cleo("cleo", server.port());
    EXPECT_TRUE(cleo.sees("ada: For later 2"));
    cleo.settle();
    const auto late = std::find_if(
        cleo.shown.begin(), cleo.shown.end(), [](const auto& line) { return line == "ada: For later 1"; });
    ASSERT_NE(late, cleo.shown.end()) << "the first message is not overtaken by the second";

    ben.ask(client::requests::create_room("tea", ""));
    EXPECT_TRUE(ben.sees("The room tea has been created sucessfully"));
    cleo.ask(client::requests::join_room("tea"));
    ben.write("#tea", "Milk?");
    EXPECT_TRUE(cleo.sees("[tea] ben: Milk?"));
    cleo.settle();

    server.send_signal(SIGTERM);
    EXPECT_EQ(farewells(cleo), 1);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_THAT(messages(),
        ElementsAre("ada|ben|1|1|1", "ada|ben|1|1|0", "ben|ada|1|1|0", "ada|cleo|1|1|0", "ada|cleo|1|1|1",
            "ben|cleo|1|1|0"));
}

TEST_F(ChatTest, ATraceShowsStatementsAndNoSecrets)
{
    server.send_signal(SIGTERM);
    ASSERT_EQ(server.wait(), 0);
    EXPECT_THAT(server.log(), Not(HasSubstr("sql "))) << "nobody asked for it";
    server.start({"--trace-sql"});
    Person ada("ada", server.port());
    ASSERT_TRUE(ada.sees("logged on"));
    ada.write("ben", "Meet me at the oak");
    ada.ask(client::requests::save_auto_reply(true, "Under the oak"));
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_THAT(server.log(),
        AllOf(ContainsRegex(" info sql [0-9.]+ ms  SELECT [^\n]* WHERE username = .  .'ada'.\n"),
            ContainsRegex("INSERT INTO .messages. [^\n]*'ada', 'ben'"),
            ContainsRegex("INSERT INTO .queue. [^\n]*<18 characters>"),
            ContainsRegex(" info sql [0-9.]+ ms  COMMIT\n")));
    EXPECT_THAT(server.log(), AllOf(Not(HasSubstr("oak")), Not(HasSubstr("secret")), Not(HasSubstr("{v1}"))));
}

TEST_F(ChatTest, TheShutdownCommandTellsUsersOnce)
{
    Person ada("ada", server.port());
    ASSERT_TRUE(ada.sees("logged on"));
    ASSERT_EQ(server.run({"command", "shutdown"}), 0) << server.output;
    EXPECT_EQ(farewells(ada), 1);
    EXPECT_EQ(server.wait(), 0);
}

TEST_F(ChatTest, TellsStrangersFromUsers)
{
    Person wrong("ada", server.port(), "guess");
    EXPECT_TRUE(wrong.sees("refused without a reason"));
    ASSERT_EQ(server.run({"user", "disable", "ben"}), 0) << server.output;
    Person disabled("ben", server.port());
    EXPECT_TRUE(disabled.sees("refused Your account is disabled!"));

    Person ada("ada", server.port());
    ASSERT_TRUE(ada.sees("logged on"));
    ada.write("nobody", "Hello?");
    EXPECT_TRUE(ada.sees("notice The buddy nobody doesn't exist!"));
    ada.write("#nowhere", "Hello?");
    EXPECT_TRUE(ada.sees("notice The room nowhere doesn't exist!"));
    EXPECT_TRUE(messages().empty());
    EXPECT_NE(server.run({"run"}), 0) << "one server per home";
    EXPECT_THAT(server.output, HasSubstr("already"));
}
