// Rooms: joining, leaving, who is there, creating and deleting, and what the guests are told.
#pragma once

#include "base/Journal.h"
#include "config/Deployment.h"
#include "helpers/MessageParser.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"
#include "protocol/Request.h"
#include "store/Directory.h"
#include "store/Rooms.h"

#include <optional>
#include <string>

namespace qz::protocol {

class RoomRequests {
public:
    struct Sources {
        store::Rooms& rooms;
        store::Directory& directory;
        const config::Deployment& deployment;
    };
    RoomRequests(Sources sources, const net::ConnectionTable& connections,
        const helpers::MessageParser& parser, net::Sender& sender, Journal& journal);

    /// A request that does not meet its condition is dropped without an answer, but creating and deleting
    /// always answer with a feedback text. With the safeguard RoomNames a room is named in lower case,
    /// whatever the client wrote, and its memberships end with it.
    void Request_Room(const Request& request);
    /// Removes a user who goes away from every room, and tells the guests of each.
    void UnscribeFromRooms(const std::string& user);

    /// The members of a room, and the rooms of a user, as one list text.
    std::string BuddiesInRoom(const std::string& room) const;
    std::string RoomJointFromBuddy(const std::string& user) const;

private:
    /// What every action reads.
    struct Call {
        const Request& request;
        std::string user;
        std::string room;
    };
    void join(const Call& call);
    void leave(const Call& call);
    void guests(const Call& call);
    void where_am_i(const Call& call);
    void create(const Call& call);
    void remove(const Call& call);
    std::string room_in(const Request& request) const;
    std::optional<std::string> reason_not_to_create(const Call& call) const;
    bool exists_in_any_case(const std::string& room) const;
    void end_memberships(const std::string& room);
    void answer(const Call& call, const std::string& body);
    void log(const Call& call, const std::string& line);
    void Send_MessageToGuestsInRoom(const std::string& room, const std::string& text);

    store::Rooms& rooms_;
    store::Directory& directory_;
    const config::Deployment& deployment_;
    const net::ConnectionTable& connections_;
    const helpers::MessageParser& parser_;
    net::Sender& sender_;
    Journal& journal_;
};

} // namespace qz::protocol
