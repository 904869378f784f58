// The copies in memory follow the engine's own changes row by row; they must be what a load of everything
// gives.
#include "store/Accounts.h"
#include "store/Buddies.h"
#include "store/Rooms.h"
#include "store/Statements.h"
#include "support/TestStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace qz::store::tables;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

namespace {

class OwnChangesTest : public testing::Test {
protected:
    OwnChangesTest()
    {
        for (const auto* name : {"ann", "bert", "carl"}) {
            store.foreign().add(kUsers, {{"UserName", name}, {"IMClientInUse", "1.0"}});
            for (const auto* buddy : {"ann", "bert", "carl", "dora"}) {
                store.foreign().add(kBuddies, {{"UserName", name}, {"Buddy", buddy}, {"Group", "friends"}});
            }
            store.foreign().add(kRooms, {{"RoomName", std::string("of ") + name}, {"UserName_Owner", name}});
        }
        load(directory);
        store.watch = [this](const std::string& sql) {
            if (sql.starts_with("SELECT * FROM") && sql.find(" order by ") != std::string::npos) {
                ++whole_loads;
            }
        };
    }
    static void load(qz::store::Directory& copy)
    {
        copy.SetUsers();
        copy.SetMyBuddies();
        copy.SetRooms();
    }
    template <typename Records> static Texts listed(const qz::store::Directory& copy, const Records& entries)
    {
        Texts texts;
        for (const auto& entry : entries) {
            for (const auto* listing : copy.entries_listing(entry.Buddy)) {
                texts.push_back(entry.Buddy + "<" + listing->UserName + std::to_string(listing->IDBuddies));
            }
        }
        return texts;
    }
    /// The copy, with its look-ups, is what a fresh one is.
    void expect_whole()
    {
        load(directory);
        qz::store::Directory fresh(store.database, store.counters, store.journal);
        load(fresh);
        EXPECT_EQ(directory.users(), fresh.users());
        EXPECT_EQ(directory.buddies(), fresh.buddies());
        EXPECT_EQ(directory.rooms(), fresh.rooms());
        EXPECT_EQ(listed(directory, fresh.buddies()), listed(fresh, fresh.buddies()));
        for (const auto& room : fresh.rooms()) {
            EXPECT_EQ(
                directory.count_rooms_of(room.UserName_Owner), fresh.count_rooms_of(room.UserName_Owner));
            EXPECT_EQ(directory.has_room_in_any_case(room.RoomName), !room.RoomName.empty());
        }
        for (const auto& user : fresh.users()) {
            const auto* found = directory.user_named_in_any_case(user.UserName);
            EXPECT_EQ(found, directory.user_named(user.UserName));
            EXPECT_TRUE(found == nullptr ? user.UserName.empty() : *found == user);
        }
    }

    int whole_loads = 0;
    qz::test::TestStore store;
    qz::store::Directory& directory = store.directory;
    qz::store::Accounts accounts{
        store.database, directory, store.parser, store.secrets.cipher, store.journal};
    qz::store::Buddies buddies{store.database, directory, accounts, store.parser, store.journal};
    qz::store::RoomMembers members;
    qz::store::Rooms rooms{store.database, directory, members, store.parser, store.clock, store.journal};
};

} // namespace

TEST_F(OwnChangesTest, ReadTheRowsConcernedAlone)
{
    const std::pair<const char*, std::function<void()>> changes[] = {
        {"a buddy",
            [&] {
                buddies.insert("ann", "eve", "work");
            }},
        {"one that is listed already",
            [&] {
                buddies.insert("ann", "eve", "work");
            }},
        {"of whom one goes again",
            [&] {
                buddies.remove_duplicates_of("ann", "eve");
            }},
        {"a nameless buddy",
            [&] {
                buddies.insert("ann", "", "work");
            }},
        {"a buddy less",
            [&] {
                buddies.Delete_Buddy("ann", "eve", {}, qz::store::Quiet::No);
            }},
        {"nobody less",
            [&] {
                buddies.Delete_Buddy("ann", "nobody", {}, qz::store::Quiet::No);
            }},
        {"details",
            [&] {
                buddies.Update_BuddyDetail("ann", "bert", "g", "c", "k", {});
            }},
        {"a key",
            [&] {
                buddies.Update_BuddyPassword("bert", "ann", "k2");
            }},
        {"a client",
            [&] {
                accounts.save_client_version("ann", "2.0", {});
            }},
        {"a password",
            [&] {
                accounts.set_ScreenNamePassword("ann", "secret", {});
            }},
        {"an account off",
            [&] {
                accounts.set_ScreenName_Enabled("bert", false);
            }},
        {"an account",
            [&] {
                accounts.set_NewScreenName("Dora", "e", "f", "l", "p");
            }},
        {"a room",
            [&] {
                rooms.RoomCreate("o'room", "ann", {}, "k");
            }},
        {"a room less",
            [&] {
                rooms.RoomDelete("o'room", "'ann'", {});
            }},
    };
    for (const auto& [what, change] : changes) {
        SCOPED_TRACE(what);
        change();
        whole_loads = 0;
        load(directory);
        EXPECT_EQ(whole_loads, 0);
        expect_whole();
    }
    EXPECT_THAT(store.failures(), IsEmpty());
}

TEST_F(OwnChangesTest, AreTakenBackWithALostTurn)
{
    buddies.insert("ann", "eve", "work");
    accounts.save_client_version("ann", "2.0", {});
    rooms.RoomCreate("new", "ann", {}, {});
    expect_whole();
    EXPECT_NE(directory.buddy_named("ann", "eve"), nullptr);
    store.database.fail_turn();
    store.database.turn_ended();
    expect_whole();
    EXPECT_EQ(directory.buddy_named("ann", "eve"), nullptr);
    EXPECT_EQ(directory.user_named("ann")->IMClientInUse, "1.0");
    EXPECT_EQ(directory.room_named("new"), nullptr);
}

TEST_F(OwnChangesTest, DoNotHideThoseOfAnotherProgram)
{
    const auto of_other = [&] {
        store.foreign().add(kBuddies, {{"UserName", "carl"}, {"Buddy", "zoe"}});
    };
    of_other(); // and nothing of the engine's own statement
    buddies.Delete_Buddy("ann", "nobody", {}, qz::store::Quiet::Yes);
    expect_whole();
    buddies.insert("ann", "eve", "work");
    of_other();
    buddies.Delete_Buddy("ann", "bert", {}, qz::store::Quiet::Yes);
    expect_whole();
    of_other();
    buddies.insert("ann", "fred", "work");
    expect_whole();
}

TEST_F(OwnChangesTest, GiveWhatAFreshLoadGivesInAnySequence)
{
    const Texts names{"ann", "Ann", "bert", "carl", "nobody", "o'brien", "zo\u00eb", "Zo\u00cb", "_x", "a-b",
        "a b", "ab", "", std::string(80, 'n')};
    std::mt19937 random(20260302); // NOLINT(cert-msc32-c, cert-msc51-cpp): the same sequence each time
    const auto any = [&](std::size_t count) {
        return static_cast<std::size_t>(random() % count);
    };
    const auto name = [&] {
        return names[any(names.size())];
    };
    const auto clean = [&] {
        return store.parser.CleanText(name());
    };
    const std::vector<std::function<void()>> steps{
        [&] { buddies.insert(clean(), clean(), "g" + std::to_string(any(9))); },
        [&] { buddies.insert(clean(), clean(), "g"); },
        [&] { buddies.remove_duplicates_of(clean(), clean()); },
        [&] { buddies.Delete_Buddy(clean(), name(), {}, qz::store::Quiet::Yes); },
        [&] { buddies.Update_BuddyDetail(clean(), name(), "g", "c", std::to_string(any(99)), {}); },
        [&] { buddies.Update_BuddyPassword(clean(), clean(), std::to_string(any(99))); },
        [&] { accounts.save_client_version(name(), std::to_string(any(99)), {}); },
        [&] { accounts.set_ScreenName_Enabled(name(), any(2) == 0); },
        [&] { accounts.set_NewScreenName(name(), "e", "f", "l", "p"); },
        [&] { rooms.RoomCreate(name(), "ann", {}, {}); },
        [&] { rooms.RoomDelete(name(), "'ann'", {}); },
        [&] { buddies.insert("it's", "refused", "g"); },
        [&] {
            store.foreign().add(kBuddies, {{"UserName", name()}, {"Buddy", name()}});
        },
        [&] { buddies.RemoveDuplicatedBuddies(); },
        [&] { store.database.turn_ended(); },
        [&] {
            store.database.fail_turn();
            store.database.turn_ended();
        },
    };
    for (int i = 0; i < 400 && !HasFailure(); ++i) {
        SCOPED_TRACE(i);
        try {
            steps[any(steps.size())]();
        } catch (
            const qz::EngineError&) { // NOLINT(bugprone-empty-catch): a refused statement is one of the steps
        }
        if (any(3) == 0) {
            expect_whole();
        }
    }
    expect_whole();
}
