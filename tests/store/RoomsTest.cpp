#include "store/Rooms.h"

#include "store/Statements.h"
#include "support/MemoryStore.h"

#include <gtest/gtest.h>

#include <random>

using qz::store::Rooms;
using qz::store::tables::kRooms;
using Texts = std::vector<std::string>;

namespace {

class RoomsTest : public testing::Test, protected qz::test::MemoryStore {
protected:
    RoomsTest() { members.reset(20); }
    void join(const char* user, const char* room) { rooms.AddUserInRoom(user, room, "10.0.0.1"); }

    qz::store::RoomMembers members;
    Rooms rooms{database, directory, members, parser, clock, journal};
};

} // namespace

TEST_F(RoomsTest, CreatesAndDeletesByOwner)
{
    EXPECT_TRUE(rooms.RoomCreate("lobby", "anna", "10.0.0.1", "k1"));
    EXPECT_TRUE(rooms.RoomCreate("it's", "bert", "10.0.0.1", ""));
    EXPECT_FALSE(rooms.RoomExists("lobby")) << "the caller reloads";
    directory.SetRooms();
    EXPECT_TRUE(rooms.RoomExists("lobby"));
    EXPECT_FALSE(rooms.RoomExists("Lobby"));
    EXPECT_FALSE(rooms.RoomExists(""));
    const auto& lobby = *std::next(directory.rooms().begin());
    EXPECT_EQ(lobby.UserName_Owner + "/" + lobby.key, "anna/k1");
    EXPECT_EQ(lobby.CreationTime, clock.now());

    EXPECT_EQ(rooms.RoomDelete("lobby", "'bert'", ""), "No room lobby found, maybe you are not the owner!");
    EXPECT_EQ(
        rooms.RoomDelete("it's me", "'bert'", ""), "No room it''s me found, maybe you are not the owner!");
    EXPECT_EQ(column(kRooms, "RoomName").size(), 2U);
    EXPECT_EQ(rooms.RoomDelete("it's", "'bert'", ""), "");
    EXPECT_EQ(column(kRooms, "RoomName"), Texts{"lobby"});
    EXPECT_TRUE(journal.failures.empty());

    EXPECT_EQ(rooms.RoomDelete("lobby", "anna", "10.0.0.1"), "") << "the owner must be a literal";
    EXPECT_EQ(column(kRooms, "RoomName"), Texts{"lobby"});
    EXPECT_EQ(journal.failures.at(0).routine, "RoomDelete");
}

TEST_F(RoomsTest, KeepsOneMembershipEach)
{
    join("anna", "lobby");
    join("bert", "lobby");
    join("anna", "garden");
    join("anna", "lobby");
    EXPECT_EQ(rooms.members_of("lobby"), (Texts{"anna", "bert"}));
    EXPECT_EQ(rooms.rooms_of("anna"), (Texts{"lobby", "garden"}));
    EXPECT_FALSE(rooms.UserAlreadyInRoom("Anna", "lobby"));
    EXPECT_FALSE(rooms.UserAlreadyInRoom("anna", "Lobby"));

    rooms.LeaveUserFromRoom("anna", "lobby");
    rooms.LeaveUserFromRoom("anna", "lobby");
    EXPECT_EQ(rooms.rooms_of("anna"), Texts{"garden"});
    EXPECT_EQ(members.slots()[0].UserName, "anna") << "a freed slot keeps its names";
    join("dora", "lobby");
    EXPECT_EQ(rooms.members_of("lobby"), (Texts{"dora", "bert"})) << "the first free slot, in slot order";
    EXPECT_EQ(rooms.rooms_of("anna"), Texts{"garden"});
}

TEST_F(RoomsTest, NeverFindsANameThatCleaningChanges)
{
    join("o'brien", "lobby");
    EXPECT_FALSE(rooms.UserAlreadyInRoom("o'brien", "lobby"));
    rooms.LeaveUserFromRoom("o'brien", "lobby");
    join("o'brien", "lobby");
    EXPECT_EQ(rooms.members_of("lobby"), (Texts{"o'brien", "o'brien"}));
    EXPECT_FALSE(rooms.UserAlreadyInRoom("o''brien", "lobby")) << "cleaned once more";
}

TEST_F(RoomsTest, ReportsAJoinThatFindsNoPlace)
{
    members.reset(2);
    for (const auto* user : {"a", "b", "c"}) {
        join(user, "lobby");
    }
    EXPECT_TRUE(journal.failures.empty());
    join("d", "lobby");
    ASSERT_EQ(journal.failures.size(), 1U);
    EXPECT_EQ(journal.failures[0].routine, "AddUserInRoom");
    EXPECT_EQ(journal.failures[0].number, 9);
    EXPECT_EQ(rooms.members_of("lobby"), (Texts{"a", "b", "c"}));
}

TEST_F(RoomsTest, GrowsLeavingTheFirstNewSlotFree)
{
    members.reset(10);
    for (int i = 0; i < 11; ++i) {
        join(("u" + std::to_string(i)).c_str(), "lobby");
    }
    join("late", "lobby");
    EXPECT_EQ(members.upper_bound(), 13);
    EXPECT_EQ(members.slots()[12].UserName, "late");
    join("later", "lobby");
    EXPECT_EQ(members.slots()[11].UserName, "later");
    const auto names = rooms.members_of("lobby");
    EXPECT_EQ(names.at(11), "later");
    EXPECT_EQ(names.at(12), "late");
}

TEST_F(RoomsTest, IndexAgreesWithAScan)
{
    std::mt19937 random(7);
    const auto one_of = [&](const char* letter) {
        return letter + std::to_string(random() % 6);
    };
    for (int step = 0; step < 2000; ++step) {
        const auto user = one_of("u");
        const auto room = one_of("r");
        bool found = false;
        Texts in_room;
        for (const auto& slot : members.slots()) {
            found = found || (slot.InUse && slot.UserName == user && slot.RoomName == room);
            if (slot.InUse && slot.RoomName == room) {
                in_room.push_back(slot.UserName);
            }
        }
        ASSERT_EQ(rooms.UserAlreadyInRoom(user, room), found);
        ASSERT_EQ(rooms.members_of(room), in_room);
        if (random() % 2 == 0) {
            rooms.AddUserInRoom(user, room, "");
        } else {
            rooms.LeaveUserFromRoom(user, room);
        }
    }
}
