#include "RoomCommand.h"

#include "HomeStore.h"
#include "Names.h"
#include "base/Text.h"
#include "common/Console.h"
#include "common/Exit.h"
#include "store/RoomMembers.h"
#include "store/Rooms.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

namespace velto {

namespace {

using qz::store::RoomRecord;

struct HomeRooms : HomeDirectory {
    using HomeDirectory::HomeDirectory;

    qz::store::RoomMembers members; // of nobody: memberships live in the server
    qz::store::Rooms rooms{database, directory, members, parser, machine.clock(), journal};
};

/// The room of exactly this name, else of this name in another letter case.
const RoomRecord* find_room(const HomeDirectory& home, const std::string& name)
{
    if (const auto* exact = home.directory.room_named(name)) {
        return exact;
    }
    const auto& rooms = home.directory.rooms();
    const auto found = std::find_if(rooms.begin(), rooms.end(),
        [&](const RoomRecord& room) { return qz::equal_ignoring_case(room.RoomName, name); });
    return found == rooms.end() || name.empty() ? nullptr : &*found;
}

} // namespace

void run_room_list(const Home& home, ListForm form)
{
    home.require_initialised();
    const HomeDirectory store(home, Access::Read);
    auto all = nlohmann::ordered_json::array();
    for (const auto& room : store.directory.rooms()) {
        if (room.RoomName.empty()) {
            continue; // how the directory says that there are none
        }
        const auto created = room.CreationTime.empty() ? "" : room.CreationTime.text();
        if (form == ListForm::Names) {
            std::cout << qz::printable(room.RoomName) << "\n";
            continue;
        }
        if (form == ListForm::Json) {
            all.push_back({{"name", room.RoomName}, {"owner", room.UserName_Owner}, {"created", created}});
            continue;
        }
        std::cout << in_column(room.RoomName, 24) << in_column(room.UserName_Owner, 20) << created << "\n";
    }
    if (form == ListForm::Json) {
        print_json(all);
    }
}

void run_room_add(const Home& home, const std::string& name, const std::string& owner)
{
    require_room_name(name);
    home.require_initialised();
    HomeRooms store(home);
    const auto* user = store.directory.user_named_in_any_case(owner);
    if (user == nullptr) {
        throw CommandError(
            Exit::Failed, "there is no account \"" + qz::printable(owner) + "\" that could own the room");
    }
    if (find_room(store, name) != nullptr) {
        throw CommandError(Exit::Failed, "the room \"" + qz::printable(name) + "\" exists already");
    }
    const auto stored_name = qz::lower(name);
    store.rooms.RoomCreate(stored_name, user->UserName, {}, {});
    store.commit();
    std::cout << "Room " << qz::printable(stored_name) << " added\n";
}

void run_room_delete(const Home& home, const std::string& name)
{
    home.require_initialised();
    HomeRooms store(home);
    const auto* room = find_room(store, name);
    if (room == nullptr) {
        throw CommandError(Exit::Failed,
            "there is no room \"" + qz::printable(name) + "\"\nAll of them: velto-server room list --home "
                + home.folder().string());
    }
    const auto owner = "'" + store.parser.CleanText(room->UserName_Owner) + "'";
    const auto refusal = store.rooms.RoomDelete(room->RoomName, owner, {});
    store.commit();
    if (!refusal.empty()) {
        throw CommandError(Exit::Failed, qz::printable(refusal));
    }
    std::cout << "Room " << qz::printable(room->RoomName) << " deleted\n";
}

} // namespace velto
