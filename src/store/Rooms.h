// Rooms, and who is in which of them.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "store/Database.h"
#include "store/Directory.h"
#include "store/RoomMembers.h"

#include <string>
#include <vector>

namespace qz::store {

class Rooms {
public:
    Rooms(Database& database, Directory& directory, RoomMembers& members,
        const helpers::MessageParser& parser, const Clock& clock, Journal& journal);

    // Creating and deleting leave the directory as it is; the caller reloads it.

    /// Does not ask whether the name is taken.
    bool RoomCreate(const std::string& room_name, const std::string& owner, const std::string& remote_ip,
        const std::string& key);
    /// @param owner  goes into the statement as it stands: a whole SQL literal with its quotes.
    /// @return the refusal; empty when the room was deleted, and when the statement failed, which was
    /// reported.
    std::string RoomDelete(
        const std::string& room_name, const std::string& owner, const std::string& remote_ip);
    bool RoomExists(const std::string& room_name) const;

    // Memberships. Names are kept as they are given, but looked for in their cleaned form: a member whose
    // name has a single quote is never found again. Kept as it is: clients do not log on with such names.
    bool UserAlreadyInRoom(const std::string& user_name, const std::string& room_name) const;
    /// Does nothing for a member. Fails, which is reported, when the table has no place and cannot grow.
    void AddUserInRoom(
        const std::string& user_name, const std::string& room_name, const std::string& remote_ip);
    /// Ends one membership, the first.
    void LeaveUserFromRoom(const std::string& user_name, const std::string& room_name);

    /// Ends all memberships of a room, whatever their users' names.
    void end_memberships(const std::string& room_name);

    /// Names as they stand in the table, in the order of its slots: copies, so a change while they are walked
    /// does no harm.
    std::vector<std::string> members_of(const std::string& room_name) const;
    std::vector<std::string> rooms_of(const std::string& user_name) const;

private:
    Database& database_;
    Directory& directory_;
    RoomMembers& members_;
    const helpers::MessageParser& parser_;
    const Clock& clock_;
    Journal& journal_;
};

} // namespace qz::store
