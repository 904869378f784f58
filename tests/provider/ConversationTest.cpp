// People, a server process, and the database server that VELTO_TEST_PROVIDER names, which is killed while
// they talk.
#include "store/Overrides.h"
#include "support/DatabaseServer.h"
#include "system/Person.h"
#include "system/ServerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

using namespace qz;
using test::Person;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ConversationOnServerTest : public testing::Test {
protected:
    ConversationOnServerTest()
    {
        auto& database = *test::server_under_test();
        set("Storage/Provider", "odbc");
        set("DB SetUp/dbServerIP", database.address());
        set("DB SetUp/dbUserName", test::DatabaseServer::kUser);
        run({"config", "set", "DB SetUp/dbPassword"}, database.password());
        run({"db", "init"});
        connect(true);
        for (const auto* name : {"ada", "ben"}) {
            run({"user", "add", name, "--password-stdin"}, "secret");
        }
        server.start({"--trace-sql"}); // from the link's threads
    }
    void set(const char* setting, const std::string& value) { run({"config", "set", setting, value}); }
    void run(const std::vector<std::string>& arguments, const std::string& input = {})
    {
        EXPECT_EQ(server.run(arguments, input + "\n"), 0) << server.output;
    }
    void connect(bool empty)
    {
        platform::ConnectionOptions options;
        options.overrides = store::all_overrides();
        connection = test::make_server_connection(*test::server_under_test(), options, {}, empty);
        connection->Open("");
    }
    /// Columns of all rows, joined.
    std::vector<std::string> rows(const platform::Table& table, const std::vector<std::size_t>& columns)
    {
        std::vector<std::string> found;
        for (const auto& row : connection->maintenance().read_rows(table, 0, 1000).rows) {
            auto& line = found.emplace_back();
            for (const auto column : columns) {
                line += (line.empty() ? "" : "|") + row.at(column).text();
            }
        }
        return found;
    }
    static bool sees_in_time(Person& person, const std::string& text)
    {
        const auto tries = {1, 2, 3, 4, 5, 6}; // the way back to a database may take half a minute and more
        return std::any_of(tries.begin(), tries.end(), [&](int) { return person.sees(text); });
    }
    std::size_t logged(const std::string& text) const
    {
        const auto log = server.log();
        std::size_t count = 0;
        for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
            ++count;
        }
        return count;
    }

    test::ServerProcess server;
    std::unique_ptr<platform::Connection> connection;
};

} // namespace

TEST_F(ConversationOnServerTest, OutlivesItsDatabaseServer)
{
    Person ada("ada", server.port());
    Person ben("ben", server.port());
    ASSERT_TRUE(ada.sees("logged on"));
    ASSERT_TRUE(ben.sees("logged on"));
    const auto first = ada.write("ben", "Hello, \\ 'Ben' \"\xC3\xBC\"", true);
    ASSERT_TRUE(ben.sees("ada: Hello, \\ 'Ben' \"\xC3\xBC\""));
    ASSERT_TRUE(ada.sees("receipt " + std::to_string(first)));
    ada.write("cleo", "Nobody of this name");
    ASSERT_TRUE(ada.sees("notice The buddy cleo doesn't exist!"));
    ben.leave();
    ada.settle();
    ada.write("ben", "Accepted before the outage");

    auto& database = *test::server_under_test();
    database.program().end();
    ada.deliver("ben", "Sent in the outage");
    EXPECT_TRUE(ada.sees("disconnected")) << "what cannot be stored is not accepted";
    ada.shown.clear();
    database.start();
    EXPECT_TRUE(sees_in_time(ada, "logged on"));
    ada.settle_in_time(); // people may log on before the database is back
    ben.come_back();
    EXPECT_TRUE(sees_in_time(ben, "ada: Sent in the outage"));
    EXPECT_TRUE(ben.sees("ada: Accepted before the outage"));
    ben.settle();

    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_EQ(logged(" info Database connection lost: "), 1U) << server.log();
    EXPECT_EQ(logged(" info Database connection restored after "), 1U) << server.log();
    EXPECT_EQ(logged("CheckServerCommand"), 0U) << "an outage is told once";
    EXPECT_GT(logged(" ms  INSERT INTO "), 0U);
    EXPECT_EQ(logged("outage"), 0U) << "texts of messages";
    std::istringstream lines(server.log());
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(line.starts_with("20")) << "no line is broken by another one: " << line;
        EXPECT_EQ(line.find(" info "), line.rfind(" info ")) << line;
    }
    connect(false);
    EXPECT_THAT(rows(store::tables::kMessages, {1, 2, 5, 9}),
        ElementsAre("ada|ben|1|1", "ada|ben|1|1", "ada|ben|1|1"));
    EXPECT_THAT(rows(store::tables::kQueue, {0}), IsEmpty());
    EXPECT_THAT(rows(store::tables::kQueueCount, {1, 2, 3}), ElementsAre("3|3|0"));
}
