#include "store/Rooms.h"

#include "base/Guarded.h"
#include "store/Statements.h"

namespace qz::store {

Rooms::Rooms(Database& database, Directory& directory, RoomMembers& members,
    const helpers::MessageParser& parser, const Clock& clock, Journal& journal)
    : database_(database), directory_(directory), members_(members), parser_(parser), clock_(clock),
      journal_(journal)
{
}

bool Rooms::RoomCreate(const std::string& room_name, const std::string& owner, const std::string& remote_ip,
    const std::string& key)
{
    return guarded(journal_, "RoomCreate", remote_ip, false, [&] {
        const platform::RowChange row{
            {"RoomName", "UserName_Owner", "CreationTime", "key"}, {room_name, owner, clock_.now(), key}};
        directory_.add_room(parser_.CleanText(room_name), [&] { database_.insert(tables::kRooms, row); });
        return true;
    });
}

std::string Rooms::RoomDelete(
    const std::string& room_name, const std::string& owner, const std::string& remote_ip)
{
    return guarded(journal_, "RoomDelete", remote_ip, std::string{}, [&] {
        const auto name = parser_.CleanText(room_name);
        const auto rows = database_.query(statements::kSelectOwnedRoom, Quoted{name}, Literal{owner});
        if (rows.empty()) {
            return "No room " + name + " found, maybe you are not the owner!";
        }
        const auto row = rows.front();
        const RoomRecord gone{row["IDRoom"].integer(), row["RoomName"].text(), {}, {}, {}};
        directory_.remove_row(gone, [&] { database_.remove(tables::kRooms, row.key()); });
        return std::string{};
    });
}

bool Rooms::RoomExists(const std::string& room_name) const
{
    return directory_.room_named(room_name) != nullptr;
}

bool Rooms::UserAlreadyInRoom(const std::string& user_name, const std::string& room_name) const
{
    return members_.first_slot(parser_.CleanText(user_name), room_name).has_value();
}

void Rooms::AddUserInRoom(
    const std::string& user_name, const std::string& room_name, const std::string& remote_ip)
{
    guarded(journal_, "AddUserInRoom", remote_ip, [&] {
        if (!UserAlreadyInRoom(user_name, room_name)) {
            members_.take(members_.GetFreeMemberSlot(), {user_name, room_name, clock_.now(), true});
        }
    });
}

void Rooms::LeaveUserFromRoom(const std::string& user_name, const std::string& room_name)
{
    if (const auto slot = members_.first_slot(parser_.CleanText(user_name), room_name)) {
        members_.release(*slot);
    }
}

void Rooms::end_memberships(const std::string& room_name)
{
    const auto slots = members_.in_room(room_name); // a copy: each release takes one out
    for (const auto slot : slots) {
        members_.release(slot);
    }
}

std::vector<std::string> Rooms::members_of(const std::string& room_name) const
{
    std::vector<std::string> names;
    for (const auto slot : members_.in_room(room_name)) {
        names.push_back(members_.slots()[static_cast<std::size_t>(slot)].UserName);
    }
    return names;
}

std::vector<std::string> Rooms::rooms_of(const std::string& user_name) const
{
    std::vector<std::string> names;
    for (const auto slot : members_.of_user(user_name)) {
        names.push_back(members_.slots()[static_cast<std::size_t>(slot)].RoomName);
    }
    return names;
}

} // namespace qz::store
