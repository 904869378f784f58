// The commands velto-server db on the database server that VELTO_TEST_PROVIDER names.
#include "platform/SystemClock.h"
#include "platform/sqlite/SqliteProvider.h"
#include "store/Overrides.h"
#include "support/DatabaseServer.h"
#include "system/ServerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace qz;
using namespace qz::platform;
using namespace qz::store::tables;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr std::int64_t kHighestKey = 2'000'000'000;

std::string times(int count, const std::string& text)
{
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

class DbCommandsTest : public testing::Test {
protected:
    DbCommandsTest()
    {
        for (const auto* home : {&target, &second}) {
            for (const char* file : {"VELTO_Server.key", "VELTO_Server.ini"}) {
                std::filesystem::copy_file(source.home() / file, home->home() / file,
                    std::filesystem::copy_options::overwrite_existing);
            }
        }
        use_server(target, test::server_under_test()->address());
        set(target, "DB SetUp/dbPassword", {}, test::server_under_test()->password() + "\n");
        EXPECT_EQ(target.run({"db", "init"}), 0) << target.output;
        empty_the_server();
    }

    static void set(test::ServerProcess& home, const char* setting, std::vector<std::string> value,
        const std::string& input = {})
    {
        value.insert(value.begin(), {"config", "set", setting});
        ASSERT_EQ(home.run(value, input), 0) << home.output;
    }
    static void use_server(test::ServerProcess& home, const std::string& address)
    {
        set(home, "Storage/Provider", {"odbc"});
        set(home, "DB SetUp/dbServerIP", {address});
        set(home, "DB SetUp/dbUserName", {test::DatabaseServer::kUser});
    }
    void empty_the_server()
    {
        ConnectionOptions options;
        options.overrides = store::all_overrides();
        test::make_server_connection(*test::server_under_test(), options, OdbcTimes(), true)->Open("");
    }
    std::unique_ptr<Connection> open_file(const test::ServerProcess& home)
    {
        ConnectionOptions options;
        options.database_file = home.home() / "VELTO.db";
        options.overrides = store::all_overrides();
        auto connection = make_sqlite_connection(options, clock);
        connection->Open("");
        return connection;
    }
    void put(const test::ServerProcess& home, const Table& table, std::vector<std::string> columns,
        std::vector<std::vector<Value>> rows)
    {
        open_file(home)->maintenance().write_rows(table, {std::move(columns), std::move(rows)});
    }
    void put_otto(const test::ServerProcess& home)
    {
        put(home, kUsers, {"IDUserName", "UserName"}, {{900, "otto"}});
    }
    /// Every field of a file, as text.
    std::vector<std::string> everything(const test::ServerProcess& home)
    {
        std::vector<std::string> all;
        const auto connection = open_file(home);
        for (const auto& table : {kUsers, kBuddies, kRooms, kMessages, kLog, kCommand, kAutoReply, kQueue,
                 kQueueText, kQueueCount, kLastLogOn}) {
            const auto rows = connection->maintenance().read_rows(table, INT64_MIN, 100'000);
            for (const auto& row : rows.rows) {
                for (std::size_t i = 0; i < row.size(); ++i) {
                    all.push_back(std::string(table.name) + "." + rows.columns[i] + "="
                        + (row[i].is_null() ? "NULL" : "'" + row[i].text() + "'"));
                }
            }
        }
        return all;
    }
    static int copy(
        test::ServerProcess& from, const test::ServerProcess& to, const std::vector<std::string>& more = {})
    {
        std::vector<std::string> words{"db", "copy", "--from", from.home(), "--to", to.home()};
        words.insert(words.end(), more.begin(), more.end());
        return from.run(words);
    }
    static std::vector<std::string> users(test::ServerProcess& home)
    {
        EXPECT_EQ(home.run({"user", "list", "--json"}), 0) << home.output;
        std::vector<std::string> names;
        for (const auto& user : nlohmann::json::parse(home.output)) {
            names.push_back(user.at("name"));
        }
        return names;
    }

    SystemClock clock;
    test::ServerProcess source; // embedded
    test::ServerProcess target; // on the server
    test::ServerProcess second; // embedded, with the same key
};

} // namespace

TEST_F(DbCommandsTest, WhatIsCopiedToAServerAndBackIsTheSame)
{
    put(source, kUsers,
        {"IDUserName", "UserName", "Password", "Email", "FirstName", "AccountActive", "CreationTime"},
        {{3, "anna", "PaSS", "", {}, 1, "1999-12-31 23:59:59"},
            {5, {}, {}, "a'b\"c\\d%e[f]{g}?h", "ends with blanks  ", 0, {}},
            {kHighestKey, "Grüße 😀", times(4000, "x"), {}, "\t\r\n", {}, "2024-02-29 00:00:00"}});
    put(source, kRooms, {"IDRoom", "RoomName", "key", "UserName_Owner", "CreationTime"},
        {{1, "房间", "k", "anna", "2026-03-29 02:30:00"}}); // an hour that no clock shows in many places
    put(source, kMessages, {"IDMessage", "MsgID", "Sent", "SentTime", "Ignore"},
        {{7, std::int64_t{9007199254740991}, 1, {}, 0}});
    put(source, kQueue, {"IDQueue", "Message", "ReceivedTime"},
        {{2, times(20'000, "long 😀 text\x01\n"), "2026-01-01 00:00:00"}});
    std::vector<std::vector<Value>> log;
    for (std::int64_t i = 1; i <= 1201; ++i) { // more than is read at once, with gaps
        log.push_back({i * 3, "2026-01-01 12:00:00", "anna", times(static_cast<int>(i % 200), "äß ")});
    }
    put(source, kLog, {"IDLog", "ActionTime", "UserName", "Action"}, log);
    const auto before = everything(source);

    ASSERT_EQ(copy(source, target), 0) << source.output;
    EXPECT_THAT(source.output,
        AllOf(
            HasSubstr("1201 rows"), HasSubstr("autoreply             0 rows"), Not(HasSubstr("DIFFERENT"))));
    EXPECT_EQ(copy(source, target), 1);
    EXPECT_THAT(source.output, HasSubstr("the target is not empty: its table users has rows; nothing was"));
    ASSERT_EQ(copy(source, target, {"--replace"}), 0) << source.output;
    ASSERT_EQ(copy(target, second), 0) << target.output;
    EXPECT_EQ(everything(second), before);
    EXPECT_EQ(everything(source), before);

    EXPECT_EQ(target.run({"db", "status", "--json"}), 0) << target.output;
    const auto status = nlohmann::json::parse(target.output);
    EXPECT_EQ(status.at("provider"), "odbc");
    EXPECT_EQ(status.at("schema_version"), status.at("current_schema_version"));
    ASSERT_EQ(target.run({"user", "add", "later", "--password-stdin"}, "secret\n"), 0)
        << "new rows get keys behind those that were copied: " << target.output;
}

TEST_F(DbCommandsTest, ACopyIsOneMomentOfASourceThatOthersWriteTo)
{
    std::vector<std::vector<Value>> log;
    for (std::int64_t i = 1; i <= 5'000; ++i) { // lies between the two tables that change
        log.push_back({i, "2026-01-01 12:00:00", "anna", "long enough"});
    }
    put(source, kLog, {"IDLog", "ActionTime", "UserName", "Action"}, log);
    std::atomic<bool> copied = false;
    std::thread writer([&] {
        const auto connection = open_file(source);
        auto& tables = connection->maintenance();
        for (std::int64_t i = 1; !copied; ++i) {
            const auto name = "user" + std::to_string(i);
            tables.begin();
            tables.write_rows(kUsers, {{"IDUserName", "UserName"}, {{i, name}}});
            tables.write_rows(kLastLogOn, {{"IDLastLogOn", "UserName"}, {{i, name}}});
            tables.commit();
        }
    });
    EXPECT_EQ(copy(source, target), 0) << source.output;
    copied = true;
    writer.join();
    ASSERT_EQ(copy(target, second), 0) << target.output;
    const auto connection = open_file(second);
    EXPECT_EQ(connection->maintenance().count_rows(kUsers), connection->maintenance().count_rows(kLastLogOn));
}

TEST_F(DbCommandsTest, OneDatabaseUnderTwoNamesIsNeverCopiedOntoItself)
{
    ASSERT_EQ(target.run({"user", "add", "anna", "--password-stdin"}, "secret\n"), 0) << target.output;
    auto address = test::server_under_test()->address();
    use_server(second, address.replace(0, address.find(';'), "127.1"));
    set(second, "DB SetUp/dbPassword", {}, test::server_under_test()->password() + "\n");
    EXPECT_EQ(copy(target, second, {"--replace"}), 2);
    EXPECT_THAT(target.output, HasSubstr("both homes use the same database; nothing was changed"));
    EXPECT_THAT(users(target), ElementsAre("anna"));

    put_otto(source);
    set(second, "Storage/Provider", {"embedded"});
    std::filesystem::remove(second.home() / "VELTO.db");
    const std::map<std::string, void (*)(const std::filesystem::path&, const std::filesystem::path&)> ways{
        {"symbolic link", std::filesystem::create_symlink}, {"hard link", std::filesystem::create_hard_link}};
    for (const auto& [name, link] : ways) {
        SCOPED_TRACE(name);
        link(source.home() / "VELTO.db", second.home() / "VELTO.db");
        EXPECT_EQ(copy(source, second, {"--replace"}), 2) << source.output;
        EXPECT_THAT(users(source), ElementsAre("otto"));
        std::filesystem::remove(second.home() / "VELTO.db");
    }
}

TEST_F(DbCommandsTest, ACopyThatFailsLeavesTheTargetAsItWas)
{
    put(second, kUsers, {"IDUserName", "UserName"}, {{2, "otto"}});
    ASSERT_EQ(copy(second, target), 0) << second.output;
    put(source, kUsers, {"IDUserName", "UserName"}, {{1, "berta"}});
    // The embedded database folds the case of ASCII only; to a server these are one name.
    put(source, kLastLogOn, {"IDLastLogOn", "UserName"}, {{1, "änne"}, {2, "ÄNNE"}});
    const auto before = everything(source);
    EXPECT_EQ(copy(source, target, {"--replace"}), 1);
    EXPECT_THAT(source.output, HasSubstr("the target holds what it held before"));
    EXPECT_EQ(everything(source), before);
    EXPECT_THAT(users(target), ElementsAre("otto"));
    ASSERT_EQ(target.run({"user", "add", "later", "--password-stdin"}, "secret\n"), 0)
        << "the counter of keys did not go back to what was copied: " << target.output;
    EXPECT_THAT(users(target), ElementsAre("later", "otto"));
}

TEST_F(DbCommandsTest, AServerThatCannotBeUsedIsToldOfAndTheSourceStays)
{
    put_otto(source);
    const auto before = everything(source);
    set(target, "DB SetUp/dbPassword", {}, "mistaken\n");
    for (const std::string& address : {test::server_under_test()->address(),
             "127.0.0.1;Port=" + std::to_string(test::free_port())}) { // nobody listens there
        set(target, "DB SetUp/dbServerIP", {address});
        for (const char* command : {"init", "status"}) {
            EXPECT_EQ(target.run({"db", command}), 1) << address;
            EXPECT_THAT(target.output, AllOf(HasSubstr("velto-server: "), Not(HasSubstr("mistaken"))));
        }
        EXPECT_EQ(copy(source, target, {"--replace"}), 1) << address;
        EXPECT_EQ(copy(target, source, {"--replace"}), 1) << address;
        EXPECT_EQ(everything(source), before);
    }
}
