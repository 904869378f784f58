// What the engine publishes in the settings file, and how other processes read it.
#include "online/OnLineInfo.h"

#include "server/HomeFiles.h"
#include "store/Statements.h"
#include "support/MemoryDatabase.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using qz::online::OnLineInfo;
using testing::HasSubstr;
using testing::Not;

namespace {

class OnLineInfoTest : public testing::Test {
protected:
    void SetUp() override
    {
        for (const auto* name : {"ann", "bob", "Eve", "a=b", "[x]", "=", ";c", "mary ann"}) {
            add_user(name);
        }
        server.start();
    }
    void add_user(const std::string& name)
    {
        qz::test::add_row(server.engine.database, qz::store::tables::kUsers, {{"UserName", name}});
    }
    /// The turn that announced it ends, and the pause after the last refresh is over.
    void change(const std::string& user, const std::string& status)
    {
        server.machine.clock().advance(1s);
        server.engine.presence.Update_Status(status, user, 0, "");
        server.settle();
    }
    std::string file() const { return qz::test::bytes_of(path()); }
    std::filesystem::path path() const { return server.machine.home() / qz::server::kSettingsFile; }
    std::string refreshed_at() const
    {
        return qz::config::IniFile(path()).ReadIniValue("OnLineInfo", "lasttimerefresh");
    }

    qz::test::TestEngine server;
    OnLineInfo info{server.machine.home() / qz::server::kSettingsFile};
};

} // namespace

TEST_F(OnLineInfoTest, IsEmptyBeforeTheFirstRefresh)
{
    EXPECT_EQ(info.get_OnLineUsers(), 0);
    EXPECT_EQ(info.get_UserStatus("ann"), "");
    EXPECT_THAT(file(), Not(HasSubstr("UsersStatus")));
}

TEST_F(OnLineInfoTest, ShowsAChangeOfPresence)
{
    server.client_on_line("ann", "1");
    server.client_on_line("a=b", "2");
    server.engine.settings.set_AdminScreenName("boss"); // stays in the file
    change("a=b", "away = [lunch]\r\nann=gone");
    change("ann", "online");
    EXPECT_THAT(file(),
        HasSubstr("[OnLineInfo]\nlasttimerefresh=2026-03-02 09:00:02\nonlinebuddies=2\n\n[UsersStatus]\n"));
    EXPECT_EQ(server.engine.settings.get_AdminScreenName(), "boss");
    EXPECT_EQ(info.get_OnLineUsers(), 2);
    const struct {
        const char* name;
        const char* status;
    } cases[] = {
        {"ann", "online"},
        {"ANN", "online"},
        {"bob", "offline"},
        {"eve", "offline"},
        {"EVE", "offline"},
        {"Mary Ann", "offline"},
        {"[X]", "offline"},
        {"=", "offline"},
        {";c", "offline"},
        {"nobody", ""},
        {"", ""},
        {"lasttimerefresh", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(info.get_UserStatus(c.name), c.status) << c.name;
    }
    EXPECT_TRUE(info.get_UserStatus("A=B").starts_with("away = [lunch]")) << "on one line";
}

TEST_F(OnLineInfoTest, PublishesABoundedTextThatSteersNothing)
{
    server.client_on_line("ann", "1");
    change("ann",
        "\x1b[2Jout\x7f\xC2\x9b"
        "31m \xC3\xA9\tnow"
            + std::string(15'000, 'x'));
    EXPECT_TRUE(info.get_UserStatus("ann").starts_with("[2Jout31m \xC3\xA9nowx"));
    EXPECT_LT(file().size(), 2000U);
    EXPECT_EQ(file().find('\x1b'), std::string::npos);
}

TEST_F(OnLineInfoTest, WithNobodyOnLineTheCountIsZero)
{
    auto ann = server.client_on_line("ann", "1");
    change("ann", "online");
    ASSERT_EQ(info.get_OnLineUsers(), 1);
    server.machine.clock().advance(1s);
    ann.vanish();
    server.settle();
    EXPECT_EQ(info.get_OnLineUsers(), 0);
    EXPECT_EQ(info.get_UserStatus("ann"), "offline");
}

TEST_F(OnLineInfoTest, RewritesOnceATurnAndOnceASecond)
{
    server.client_on_line("ann", "1");
    change("ann", "online");
    const auto second = [&](const char* text) {
        return std::string("2026-03-02 09:00:") + text;
    };
    ASSERT_EQ(refreshed_at(), second("01"));

    // The file's number changes with every rewrite.
    const auto written = [&] {
        return qz::platform::AtomicFile(path()).stamp();
    };
    const auto before = written();
    server.engine.presence.Update_Status("away", "ann", 0, "");
    server.settle();
    EXPECT_EQ(written(), before) << "the last one is less than a second ago";
    server.settle();
    EXPECT_EQ(written(), before);

    server.machine.clock().advance(1s);
    server.engine.presence.Update_Status("busy", "ann", 0, "");
    EXPECT_EQ(written(), before) << "the turn has not ended";
    server.settle();
    EXPECT_EQ(info.get_UserStatus("ann"), "busy");
    EXPECT_EQ(refreshed_at(), second("02"));

    const auto after = written();
    server.machine.clock().advance(5s);
    server.settle();
    EXPECT_EQ(written(), after) << "nobody asked";
}

TEST_F(OnLineInfoTest, AChangeWithinTheSecondIsWrittenLater)
{
    server.client_on_line("ann", "1");
    change("ann", "online");
    server.engine.presence.Update_Status("away", "ann", 0, "");
    server.settle();
    EXPECT_EQ(info.get_UserStatus("ann"), "online");
    server.machine.clock().advance(1s);
    server.machine.clock().set_now(qz::DateTime::parse("2020-01-01 00:00:00").value()); // somebody sets it
    server.machine.tick();
    EXPECT_EQ(info.get_UserStatus("ann"), "away");
    EXPECT_EQ(refreshed_at(), "2020-01-01 00:00:00");
}

TEST_F(OnLineInfoTest, UsersWhoLeftKeepTheirLine)
{
    server.client_on_line("bob", "1");
    change("bob", "away");
    auto& database = server.engine.database;
    database.remove(
        qz::store::tables::kUsers, database.query(qz::store::statements::kSelectUser, "bob").front().key());
    server.engine.directory.SetUsers();
    change("bob", "busy");
    EXPECT_EQ(info.get_UserStatus("bob"), "away");
}

TEST_F(OnLineInfoTest, AFileThatCannotBeWrittenIsTriedAgain)
{
    server.client_on_line("ann", "1");
    change("ann", "online");
    const auto kept = path().string() + ".kept";
    std::filesystem::rename(path(), kept);
    std::filesystem::create_directory(path()); // a folder in its place
    server.events.list.clear();
    change("ann", "away");
    EXPECT_THAT(server.events.take_starting("Error "), testing::IsEmpty());
    EXPECT_EQ(info.get_OnLineUsers(), 0);
    EXPECT_EQ(info.get_UserStatus("ann"), "");
    std::filesystem::remove(path());
    std::filesystem::rename(kept, path());
    EXPECT_EQ(info.get_UserStatus("ann"), "online");
    change("ann", "busy");
    EXPECT_EQ(info.get_UserStatus("ann"), "busy");
}

TEST(OnLineInfoFile, ReadsWhatOthersWrote)
{
    qz::test::TemporaryFolder folder;
    const struct {
        const char* count;
        std::int32_t users;
    } cases[] = {{"", 0}, {"7", 7}, {" 12 ", 12}, {"x", 0}, {"3x", 3}, {"2147483647", 2147483647},
        {"2147483648", 0}, {"1e999", 0}, {"-1", -1}};
    const OnLineInfo info(folder / "VELTO_Server.ini");
    EXPECT_EQ(info.get_OnLineUsers(), 0) << "no file";
    EXPECT_EQ(info.get_UserStatus("ann"), "");
    for (const auto& c : cases) {
        qz::test::put_bytes(
            folder / "VELTO_Server.ini", std::string("[OnLineInfo]\nonlinebuddies=") + c.count);
        EXPECT_EQ(info.get_OnLineUsers(), c.users) << c.count;
    }
}
