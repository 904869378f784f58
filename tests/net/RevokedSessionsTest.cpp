#include "net/RevokedSessions.h"

#include "support/Conversation.h"
#include "support/TestMachine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

using qz::store::tables::kUsers;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using Texts = std::vector<std::string>;

namespace {

/// Other programs change accounts while their users are on line.
class RevokedSessionsTest : public testing::Test {
protected:
    RevokedSessionsTest()
    {
        server.engine.database.turn_ended();
        for (const auto* name : {"ann", "bob"}) {
            keys[name] = server.machine.database().add(kUsers, {{"UserName", name}, {"Password", "secret"}});
        }
        server.start();
        server.engine.ini.WriteIniValue("Safeguards", "EndRevokedSessions", "True");
        server.machine.tick(2);
    }

    qz::test::MemoryPeer on_line(const std::string& name)
    {
        auto peer = server.client();
        server.engine.accounts.ScreenNameExist(name);
        EXPECT_TRUE(server.engine.registration.bind(name, "1", peer.number(), "192.0.2.10"));
        return peer;
    }
    void change(const char* name, const char* column, const qz::platform::Value& value)
    {
        server.engine.database.turn_ended();
        server.machine.database().change(kUsers, keys[name], {{column, value}});
    }
    Texts heard(qz::test::MemoryPeer& peer)
    {
        server.machine.tick();
        return qz::test::messages_in(peer.take());
    }

    qz::test::TestEngine server;
    std::map<std::string, std::int64_t> keys;
};

} // namespace

TEST_F(RevokedSessionsTest, EndWithTheNextTickAndNoOthers)
{
    auto bob = on_line("bob");
    const std::string disabled =
        "notice You have been logged off because your account is disabled or deleted";
    const std::string changed = "notice You have been logged off because your password has been changed";
    const struct {
        const char* column;
        qz::platform::Value value;
        std::string notice; // empty when the session goes on
    } cases[] = {
        {"AccountActive", false, disabled},
        {"Password", "other", changed},
        {"Email", "ann@example.org", ""},
        {"Password", server.engine.cipher.Encode("other"), ""}, // the same, only encoded
        {"Password", server.engine.cipher.Encode("Other"), changed},
        {"Password", "{v1}damaged", changed},
        {"UserName", "anna", disabled},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(std::string(each.column) + " " + each.value.text());
        auto ann = on_line("ann");
        EXPECT_THAT(heard(ann), IsEmpty());
        server.events.list.clear();
        change("ann", each.column, each.value);
        if (each.notice.empty()) {
            EXPECT_THAT(heard(ann), IsEmpty());
            EXPECT_FALSE(ann.ended());
        } else {
            EXPECT_THAT(heard(ann), ElementsAre(each.notice));
            EXPECT_TRUE(ann.ended());
            change("ann", "AccountActive", true);
            EXPECT_THAT(server.events.take_starting("Log ann"),
                ElementsAre(StartsWith("Log ann logged off because the")));
        }
    }
    EXPECT_THAT(heard(bob), IsEmpty());
    EXPECT_FALSE(bob.ended());
}

TEST_F(RevokedSessionsTest, StayWithoutTheSafeguardAndWhileTheTableCannotBeRead)
{
    auto ann = on_line("ann");
    server.engine.ini.DeleteIniEntry("Safeguards", "EndRevokedSessions");
    change("ann", "Password", "other");
    EXPECT_THAT(heard(ann), IsEmpty());
    server.engine.ini.WriteIniValue("Safeguards", "EndRevokedSessions", "True");
    server.machine.watch = [](const std::string& sql) {
        if (sql.starts_with("SELECT * FROM users order by")) {
            throw qz::database_error(qz::DatabaseError::Timeout, "frozen");
        }
    };
    EXPECT_THAT(heard(ann), IsEmpty()) << "a directory that lost its users must not log everybody off";
    server.machine.watch = nullptr;
    EXPECT_THAT(
        heard(ann), ElementsAre("notice You have been logged off because your password has been changed"));
}
