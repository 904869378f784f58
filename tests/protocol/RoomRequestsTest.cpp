// Rooms, as those in them, those outside, the tables and the log see them.
#include "protocol/RoomRequests.h"

#include "support/Conversation.h"
#include "support/Talk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

namespace {

/// "_" stands for BlankSubstitute, which reads badly in a literal.
std::string wire(std::string text)
{
    std::replace(text.begin(), text.end(), '_', '\x1F');
    return text;
}

class RoomRequestsTest : public testing::Test {
protected:
    RoomRequestsTest()
    {
        // The table of room members is as large as the table of users.
        for (const auto* name : {"ann", "bob", "mary ann", "carl", "dora", "eve"}) {
            talk->add_user(name);
        }
        talk->add_buddy("bob", "ann");
        talk->add_room("the attic", "bob");
        talk->add_room("cellar", "ann");
        talk->start();
    }

    /// "name|owner|key" of every room that the engine knows, after its reload.
    Texts known()
    {
        Texts texts;
        for (const auto& room : talk->engine().directory.rooms()) {
            texts.push_back(room.RoomName + "|" + room.UserName_Owner + "|" + room.key);
        }
        return texts;
    }
    /// What was sent and logged, in order, by its kind.
    Texts order()
    {
        auto events = talk->events().take();
        // A name with a quote never gets into the log's table.
        std::erase_if(events,
            [](const auto& each) { return each == "Ingoing" || each.starts_with("Error Write2dbLog"); });
        for (auto& each : events) {
            each = each.substr(0, each.find(" ["));
        }
        return events;
    }

    std::unique_ptr<qz::test::Talk> talk = qz::test::talk_in_memory();
    qz::store::Rooms& rooms = talk->engine().rooms;
};

} // namespace

TEST_F(RoomRequestsTest, JoiningAndLeavingIsToldToTheGuests)
{
    auto bob = talk->on_line("bob");
    auto mary = talk->on_line("mary ann");
    auto ann = talk->on_line("ann");
    rooms.AddUserInRoom("bob", "the attic", "");
    rooms.AddUserInRoom("dora", "the attic", ""); // who is not on line
    rooms.AddUserInRoom("ann", "cellar", "");
    for (auto* client : {&bob, &mary, &ann}) {
        client->hear();
    }
    talk->log();

    mary.say("room", wire("action=join screenname=MARY_ANN roomname=the_attic"));
    EXPECT_THAT(
        order(), ElementsAre("Outgoing", "Outgoing", "Outgoing", "Log Room: the attic joined from mary ann"));
    const std::string joined = "notice The buddy mary ann joined the room: the attic";
    EXPECT_THAT(
        mary.hear(), ElementsAre(wire("room action=joinok screenname=mary_ann roomname=the attic"), joined));
    EXPECT_THAT(bob.hear(), ElementsAre(joined));
    EXPECT_THAT(rooms.members_of("the attic"), ElementsAre("bob", "dora", "mary ann"));

    mary.say("room", wire("action=leave screenname=mary_ann roomname=the_attic"));
    EXPECT_THAT(order(), ElementsAre("Outgoing", "Outgoing", "Log Room: the attic left from mary ann"));
    EXPECT_THAT(mary.hear(), ElementsAre(wire("room action=leaveok screenname=mary_ann roomname=the attic")));
    EXPECT_THAT(bob.hear(), ElementsAre("notice The buddy mary ann left the room: the attic"));
    EXPECT_THAT(rooms.members_of("the attic"), ElementsAre("bob", "dora"));
    EXPECT_THAT(ann.hear(), IsEmpty()) << "who is in another room";
}

TEST_F(RoomRequestsTest, WhatDoesNotMeetItsConditionIsDropped)
{
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    rooms.AddUserInRoom("bob", "the attic", "");
    ann.hear();
    bob.hear();
    talk->log();
    for (const auto* request : {
             "action=join screenname=bob roomname=the_attic", // is in it
             "action=join screenname=ann roomname=nowhere",
             "action=join screenname=ann roomname=The_Attic",
             "action=join screenname=ann roomname=",
             "action=join screenname=ann",
             "action=leave screenname=ann roomname=the_attic", // is not in it
             "action=leave screenname=bob roomname=cellar",
             "action=leave screenname=bob roomname=nowhere",
             "action=guest screenname=ann roomname=cellar", // nobody is in it
             "action=guest screenname=ann roomname=nowhere",
             "action=guest screenname=ann roomname=",
             "action=whereiam screenname=ann",
             "action=whereiam screenname=",
             "action=Join screenname=ann roomname=the_attic",
             "action=joins screenname=ann roomname=the_attic",
             "action= screenname=ann roomname=the_attic",
             "screenname=ann roomname=the_attic",
             "",
         }) {
        SCOPED_TRACE(request);
        ann.say("room", wire(request));
        EXPECT_THAT(ann.hear(), IsEmpty());
        EXPECT_THAT(bob.hear(), IsEmpty());
        EXPECT_THAT(order(), IsEmpty());
    }
    EXPECT_THAT(rooms.rooms_of("ann"), IsEmpty());
    EXPECT_THAT(rooms.rooms_of("bob"), ElementsAre("the attic"));
}

TEST_F(RoomRequestsTest, TellsWhoIsWhere)
{
    auto ann = talk->on_line("ann");
    rooms.AddUserInRoom("mary ann", "the attic", "");
    rooms.AddUserInRoom("bob", "the attic", "");
    rooms.AddUserInRoom("mary ann", "cellar", "");
    talk->log();
    ann.say("room", wire("action=guest screenname=ANN roomname=the_attic"));
    EXPECT_THAT(ann.hear(), ElementsAre(wire("room action=guest roomname=the_attic guests=mary_ann#bob")));
    EXPECT_THAT(talk->log(), ElementsAre("All users in room: the attic from ann [ann, 192.0.2.10]"));
    ann.say("room", wire("action=whereiam screenname=Mary_ANN"));
    EXPECT_THAT(ann.hear(), ElementsAre(wire("room action=whereiam rooms=the_attic#cellar")));
    EXPECT_THAT(talk->log(), ElementsAre("All rooms joint from mary ann [mary ann, 192.0.2.10]"));
}

TEST_F(RoomRequestsTest, CreatesRooms)
{
    auto ann = talk->on_line("ann");
    ann.hear();
    talk->log();
    const struct {
        const char* fields;
        const char* feedback;
        const char* log; // empty: none
        const char* row; // empty: none is added
    } cases[] = {
        {"screenname=ANN roomname=my_room encryptionkey=a_b=c",
            "The room my room has been created sucessfully", "New room my room created from ann",
            "my room|ann|a b=c"},
        {"screenname=bob roomname=my_room encryptionkey=x", "The room my room already exists", "", ""},
        {"screenname=ann roomname=the_attic", "The room the attic already exists", "", ""},
        {"screenname=ann roomname=The_Attic", "The room The Attic has been created sucessfully",
            "New room The Attic created from ann", "The Attic|ann|"},
        {"screenname=ann roomname=ann's encryptionkey=k'ey", "The room ann's has been created sucessfully",
            "New room ann's created from ann", "ann's|ann|k'ey"},
        // Nobody could ever join or delete it.
        {"screenname=ann roomname=", "A room needs a name", "", ""},
        {"screenname=ann roomname=__", "A room needs a name", "", ""},
        {"screenname=ann", "A room needs a name", "", ""},
    };
    auto rows = known();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fields);
        ann.say("room", wire(std::string("action=createnew ") + c.fields));
        EXPECT_THAT(ann.hear(), ElementsAre(std::string("room action=createnew feedback=") + c.feedback));
        if (std::string(c.log).empty()) {
            EXPECT_THAT(order(), ElementsAre("Outgoing"));
        } else {
            EXPECT_THAT(order(), ElementsAre(std::string("Log ") + c.log, "Outgoing"));
            rows.emplace_back(c.row);
        }
        EXPECT_THAT(known(), testing::UnorderedElementsAreArray(rows));
    }
    ann.say("room", wire("action=join screenname=ann roomname=my_room"));
    EXPECT_THAT(rooms.members_of("my room"), ElementsAre("ann"));
}

TEST_F(RoomRequestsTest, DeletesOnlyTheOwnersRoom)
{
    auto ann = talk->on_line("ann");
    ann.hear();
    ann.say("room", "action=createnew screenname=ann roomname=ann's");
    ann.hear();
    talk->log();
    const struct {
        const char* fields;
        const char* feedback;
        const char* log; // empty: none
        Texts left;
    } cases[] = {
        {"screenname=ann roomname=nowhere", "The room nowhere doesn't exist", "",
            {"the attic|bob|", "cellar|ann|", "ann's|ann|"}},
        {"screenname=ann roomname=", "The room  doesn't exist", "",
            {"the attic|bob|", "cellar|ann|", "ann's|ann|"}},
        {"screenname=ann roomname=the_attic", "The room the attic has been deleted",
            "Delete room the attic from ann",
            {"the attic|bob|", "cellar|ann|", "ann's|ann|"}}, // which is bob's
        {"screenname=x'_or_'1'='1 roomname=cellar", "The room cellar has been deleted",
            "Delete room cellar from x' or '1'='1", {"the attic|bob|", "cellar|ann|", "ann's|ann|"}},
        {"screenname= roomname=cellar", "The room cellar has been deleted", "Delete room cellar from ",
            {"the attic|bob|", "cellar|ann|", "ann's|ann|"}},
        {"screenname=ANN roomname=cellar", "The room cellar has been deleted", "Delete room cellar from ann",
            {"the attic|bob|", "ann's|ann|"}},
        {"screenname=ann roomname=cellar", "The room cellar doesn't exist", "",
            {"the attic|bob|", "ann's|ann|"}},
        {"screenname=ann roomname=ann's", "The room ann's has been deleted", "Delete room ann's from ann",
            {"the attic|bob|"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fields);
        ann.say("room", wire(std::string("action=delete ") + c.fields));
        EXPECT_THAT(ann.hear(), ElementsAre(std::string("room action=delete feedback=") + c.feedback));
        if (std::string(c.log).empty()) {
            EXPECT_THAT(order(), ElementsAre("Outgoing"));
        } else {
            EXPECT_THAT(order(), ElementsAre(std::string("Log ") + c.log, "Outgoing"));
        }
        EXPECT_THAT(known(), testing::UnorderedElementsAreArray(c.left));
    }
}

TEST_F(RoomRequestsTest, WhoGoesAwayLeavesEveryRoomFirst)
{
    auto bob = talk->on_line("bob");
    auto ann = talk->on_line("ann");
    auto mary = talk->on_line("mary ann");
    for (const auto* room : {"the attic", "cellar"}) {
        rooms.AddUserInRoom("ann", room, "");
        rooms.AddUserInRoom("bob", room, "");
    }
    rooms.AddUserInRoom("mary ann", "cellar", "");
    for (auto* client : {&bob, &mary, &ann}) {
        client->hear();
    }
    ann.wire().vanish();
    // bob has ann in his list, mary ann has not.
    EXPECT_THAT(bob.hear(),
        ElementsAre("notice The buddy ann left the room: the attic",
            "notice The buddy ann left the room: cellar", "status screenname=ann status=offline"));
    EXPECT_THAT(mary.hear(), ElementsAre("notice The buddy ann left the room: cellar"));
    EXPECT_THAT(rooms.rooms_of("ann"), IsEmpty());
    EXPECT_THAT(rooms.members_of("cellar"), ElementsAre("bob", "mary ann"));
}

TEST_F(RoomRequestsTest, WithTheSafeguardNamesAreLowerCaseAndLimited)
{
    talk->engine().ini.WriteIniValue("Safeguards", "RoomNames", "True");
    rooms.RoomCreate("Old Hall", "carl", "", "");
    talk->engine().directory.SetRooms();
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    const std::string fifty(50, 'x');
    const std::string failed = " has not been created: its name ";
    const std::string other_blank = "has a blank other than the plain one";
    const struct {
        std::string name;
        std::string feedback;
    } cases[] = {
        {"LOBBY", "The room lobby has been created sucessfully"},
        {"Lobby", "The room lobby already exists"},
        {"The_Attic", "The room the attic already exists"},
        {"old_hall", "The room old hall already exists"}, // in another letter case
        {fifty, "The room " + fifty + " has been created sucessfully"},
        {fifty + "y", "The room " + fifty + failed + "has more than 50 characters"},
        {"a\r\nb", "The room a\\r\\nb" + failed + "has control characters"},
        {"a\x1B[2J", "The room a\\x1b[2j" + failed + "has control characters"},
        {"a\u200bb", "The room a\\xe2\\x80\\x8bb" + failed + "has control characters"},
        {"\u00a0", "The room \u00a0" + failed + other_blank},
        {"the\u3000attic", "The room the\u3000attic" + failed + other_blank},
        {"the\u2009attic", "The room the\u2009attic" + failed + other_blank},
        {"_", "A room needs a name"},
        {"", "A room needs a name"},
        {"_a", "The room  a" + failed + "begins or ends with a blank"},
        {"a#b", "The room a#b" + failed + "has a #, which clients write before the name of a room"},
    };
    for (const auto& c : cases) {
        ann.hear();
        ann.say("room", wire("action=createnew screenname=ann roomname=" + c.name));
        EXPECT_THAT(ann.hear(), ElementsAre("room action=createnew feedback=" + c.feedback));
    }
    bob.say("room", wire("action=join screenname=bob roomname=LobbY"));
    EXPECT_THAT(rooms.members_of("lobby"), ElementsAre("bob"));
    bob.hear();
    const auto write_to = [&](const std::string& room) {
        ann.hear();
        ann.wire().send(qz::test::envelope("msg sessionidvalue=" + ann.session_id()
            + " screennamefrom=ann screennameto=" + wire(room) + " msg=hello"));
    };
    write_to("#Lobby");
    EXPECT_THAT(bob.hear(), ElementsAre(testing::HasSubstr("msg=hello")));
    write_to("#Old_Hall");
    EXPECT_THAT(ann.hear(), ElementsAre("notice The room Old Hall doesn't exist!")) << "not without a word";
    bob.say("room", wire("action=leave screenname=bob roomname=LOBBY"));
    EXPECT_THAT(rooms.members_of("lobby"), ElementsAre("ann"));
}

TEST_F(RoomRequestsTest, WithTheSafeguardMembershipsEndWithTheRoom)
{
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    auto act = [&](qz::test::ChatClient& who, const std::string& text) {
        bob.hear();
        who.say("room", wire(text));
    };
    rooms.AddUserInRoom("bob", "cellar", "");
    act(ann, "action=delete screenname=ann roomname=cellar");
    act(ann, "action=createnew screenname=ann roomname=cellar");
    EXPECT_THAT(rooms.members_of("cellar"), ElementsAre("bob")) << "without the safeguard";
    talk->engine().ini.WriteIniValue("Safeguards", "RoomNames", "True");
    act(bob, "action=delete screenname=bob roomname=cellar");
    EXPECT_THAT(rooms.members_of("cellar"), ElementsAre("bob")) << "it is not his";
    act(ann, "action=delete screenname=ann roomname=Cellar");
    EXPECT_THAT(bob.hear(), ElementsAre("notice The room cellar has been deleted"));
    EXPECT_THAT(rooms.members_of("cellar"), IsEmpty());
    rooms.AddUserInRoom("bob", "cellar", ""); // as if another program had deleted it
    act(ann, "action=createnew screenname=ann roomname=cellar");
    EXPECT_THAT(rooms.members_of("cellar"), IsEmpty());
}

TEST_F(RoomRequestsTest, AUserOwnsALimitedNumberOfRooms)
{
    talk->engine().ini.WriteIniValue("Safeguards", "RoomsPerUser", "3");
    auto ann = talk->on_line("ann");
    auto bob = talk->on_line("bob");
    const auto create = [&](qz::test::ChatClient& who, const std::string& fields) {
        who.hear();
        who.say("room", wire("action=createnew " + fields));
        return who.hear().at(0);
    };
    const std::string answer = "room action=createnew feedback=The room ";
    for (const auto* name : {"a", "b"}) { // the cellar is hers already
        EXPECT_EQ(create(ann, std::string("screenname=ann roomname=") + name),
            answer + name + " has been created sucessfully");
    }
    EXPECT_EQ(create(ann, "screenname=ann roomname=c"),
        answer + "c has not been created: you have 3 rooms already");
    EXPECT_EQ(create(ann, "screenname=ann roomname=a"), answer + "a already exists");
    EXPECT_EQ(create(bob, "screenname=bob roomname=c"), answer + "c has been created sucessfully");
    ann.say("room", "action=delete screenname=ann roomname=a");
    EXPECT_EQ(create(ann, "screenname=ann roomname=d"), answer + "d has been created sucessfully");
}

TEST_F(RoomRequestsTest, NamesCannotForgeAnything)
{
    auto ann = talk->on_line("ann");
    ann.say("room", wire("action=createnew screenname=ann roomname=a\x02_guests=b#c"));
    const std::string r = "\xEF\xBF\xBD";
    EXPECT_THAT(ann.hear(),
        ElementsAre(
            "room action=createnew feedback=The room a" + r + " guests=b#c has been created sucessfully"));
    ann.say("room", wire("action=join screenname=x#y_z roomname=a\x02_guests=b#c"));
    ann.hear();
    ann.say("room", wire("action=guest screenname=ann roomname=a\x02_guests=b#c"));
    EXPECT_THAT(ann.hear(),
        ElementsAre(wire("room action=guest roomname=a" + r + "_guests=b#c guests=x" + r + "y_z")));
}
