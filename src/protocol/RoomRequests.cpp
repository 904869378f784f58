#include "protocol/RoomRequests.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"
#include "protocol/RoomNames.h"
#include "protocol/Values.h"

#include <array>
#include <string_view>
#include <utility>

namespace qz::protocol {

using helpers::protocol_keywords;

namespace {

constexpr std::size_t kShownCharacters = 50;

std::string list_of(const std::vector<std::string>& names)
{
    ListText list;
    for (const auto& name : names) {
        list.add({name});
    }
    return list.text();
}

} // namespace

RoomRequests::RoomRequests(Sources sources, const net::ConnectionTable& connections,
    const helpers::MessageParser& parser, net::Sender& sender, Journal& journal)
    : rooms_(sources.rooms), directory_(sources.directory), deployment_(sources.deployment),
      connections_(connections), parser_(parser), sender_(sender), journal_(journal)
{
}

void RoomRequests::Request_Room(const Request& request)
{
    using Action = void (RoomRequests::*)(const Call&);
    static constexpr std::array<std::pair<std::string_view, Action>, 6> kActions{{
        {"join", &RoomRequests::join},
        {"leave", &RoomRequests::leave},
        {"guest", &RoomRequests::guests},
        {"whereiam", &RoomRequests::where_am_i},
        {"createnew", &RoomRequests::create},
        {"delete", &RoomRequests::remove},
    }};
    guarded(journal_, "Request_Room", request.remote_ip, [&] {
        const auto wanted = parser_.value(request.parameters, "action");
        for (const auto& [name, action] : kActions) {
            if (name == wanted) {
                (this->*action)({request, request.user, room_in(request)});
            }
        }
    });
}

std::string RoomRequests::room_in(const Request& request) const
{
    auto name = blank_value(parser_, request.parameters, "roomname");
    return deployment_.room_names() ? lower(name) : name;
}

void RoomRequests::join(const Call& call)
{
    if (!rooms_.RoomExists(call.room) || rooms_.UserAlreadyInRoom(call.user, call.room)) {
        return;
    }
    rooms_.AddUserInRoom(call.user, call.room, call.request.remote_ip);
    answer(call, "action=joinok screenname=" + without_blanks(call.user) + " roomname=" + call.room);
    Send_MessageToGuestsInRoom(call.room, "The buddy " + call.user + " joined the room: " + call.room);
    log(call, "Room: " + call.room + " joined from " + call.user);
}

void RoomRequests::leave(const Call& call)
{
    if (!rooms_.RoomExists(call.room) || !rooms_.UserAlreadyInRoom(call.user, call.room)) {
        return;
    }
    rooms_.LeaveUserFromRoom(call.user, call.room);
    answer(call, "action=leaveok screenname=" + without_blanks(call.user) + " roomname=" + call.room);
    Send_MessageToGuestsInRoom(call.room, "The buddy " + call.user + " left the room: " + call.room);
    log(call, "Room: " + call.room + " left from " + call.user);
}

void RoomRequests::guests(const Call& call)
{
    const auto list = rooms_.RoomExists(call.room) ? BuddiesInRoom(call.room) : std::string();
    if (!list.empty()) {
        answer(call, "action=guest roomname=" + without_blanks(call.room) + " guests=" + list);
        log(call, "All users in room: " + call.room + " from " + call.user);
    }
}

void RoomRequests::where_am_i(const Call& call)
{
    const auto list = RoomJointFromBuddy(call.user);
    if (!list.empty()) {
        answer(call, "action=whereiam rooms=" + list);
        log(call, "All rooms joint from " + call.user);
    }
}

/// A room without a name could never be joined, written to or deleted.
void RoomRequests::create(const Call& call)
{
    std::string feedback = "The room " + call.room + " already exists";
    if (trim(call.room).empty()) {
        feedback = "A room needs a name";
    } else if (const auto reason = reason_not_to_create(call)) {
        feedback = "The room " + printable(first_characters(call.room, kShownCharacters))
            + " has not been created: " + *reason;
    } else if (!exists_in_any_case(call.room)) {
        end_memberships(call.room); // of one that another program has deleted
        rooms_.RoomCreate(call.room, call.user, call.request.remote_ip,
            blank_value(parser_, call.request.parameters, "encryptionkey"));
        directory_.SetRooms();
        feedback = "The room " + call.room + " has been created sucessfully";
        log(call, "New room " + call.room + " created from " + call.user);
    }
    answer(call, "action=createnew feedback=" + feedback);
}

/// Only the safeguards give one.
std::optional<std::string> RoomRequests::reason_not_to_create(const Call& call) const
{
    if (deployment_.room_names()) {
        if (const auto complaint = complaint_about_room_name(call.room)) {
            return complaint;
        }
    }
    const auto most = deployment_.rooms_per_user();
    const auto owned = directory_.count_rooms_of(call.user);
    if (most && std::cmp_greater_equal(owned, *most) && !rooms_.RoomExists(call.room)) {
        return "you have " + std::to_string(owned) + " rooms already";
    }
    return std::nullopt;
}

/// Without the safeguard letter case counts. With it a room with capitals, from before, keeps its name to
/// itself.
bool RoomRequests::exists_in_any_case(const std::string& room) const
{
    return rooms_.RoomExists(room) || (deployment_.room_names() && directory_.has_room_in_any_case(room));
}

/// Only with the safeguard: without it who was in a deleted room is in the next one of its name.
void RoomRequests::end_memberships(const std::string& room)
{
    if (deployment_.room_names()) {
        Send_MessageToGuestsInRoom(room, "The room " + room + " has been deleted");
        rooms_.end_memberships(room);
    }
}

/// The feedback tells only whether the room was there; whether the user owns it is decided by the deletion.
void RoomRequests::remove(const Call& call)
{
    std::string feedback = "The room " + call.room + " doesn't exist";
    if (rooms_.RoomExists(call.room)) {
        rooms_.RoomDelete(call.room, "'" + parser_.CleanText(call.user) + "'", call.request.remote_ip);
        directory_.SetRooms();
        if (!rooms_.RoomExists(call.room)) {
            end_memberships(call.room);
        }
        feedback = "The room " + call.room + " has been deleted";
        log(call, "Delete room " + call.room + " from " + call.user);
    }
    answer(call, "action=delete feedback=" + feedback);
}

void RoomRequests::UnscribeFromRooms(const std::string& user)
{
    guarded(journal_, "UnscribeFromRooms", no_address, [&] {
        const auto left = "The buddy " + user + " left the room: ";
        for (const auto& room : rooms_.rooms_of(user)) {
            rooms_.LeaveUserFromRoom(user, room);
            Send_MessageToGuestsInRoom(room, left + room);
        }
    });
}

std::string RoomRequests::BuddiesInRoom(const std::string& room) const
{
    return list_of(rooms_.members_of(room));
}

std::string RoomRequests::RoomJointFromBuddy(const std::string& user) const
{
    return list_of(rooms_.rooms_of(user));
}

void RoomRequests::answer(const Call& call, const std::string& body)
{
    sender_.SendData(call.request.socket, protocol_keywords().Room, body);
}

void RoomRequests::log(const Call& call, const std::string& line)
{
    journal_.Log(line, call.user, call.request.remote_ip);
}

/// Reaches the members that are on line.
void RoomRequests::Send_MessageToGuestsInRoom(const std::string& room, const std::string& text)
{
    for (const auto& member : rooms_.members_of(room)) {
        if (const auto socket = connections_.Retrieve_UserSocket(member); socket != 0) {
            sender_.SendData(socket, protocol_keywords().Notice, text);
        }
    }
}

} // namespace qz::protocol
