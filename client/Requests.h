// What a client asks of the server: one function for each request of the protocol, and the text in which a
// request travels.
#pragma once

#include "base/DateTime.h"
#include "client/Incoming.h"
#include "helpers/MessageParser.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qz::client {

/// Outcome of handing something to the server. Anything but Sent has changed nothing.
enum class SendResult {
    Sent,             // on its way; the connection may still break, unless it is to be delivered
    NotLoggedOn,      // there is no session now
    NoRecipient,      // a message to nobody
    NoText,           // a message without a text
    TooLong,          // the server could not take it, or could not deliver it
    NotTransmittable, // a value that the server would read as something else
    OutputFull,       // too much is waiting to be sent
};
/// One English sentence for the user.
std::string_view describe(SendResult result);

/// A request to be completed with the session and the user's own name. A raw request names any keyword and
/// any keys of the protocol; a field "msg" comes last.
struct Request {
    std::string keyword;
    std::string own_name_key; // key of the user's own name; empty when the request does not carry it
    std::vector<std::pair<std::string, std::string>> fields; // key and value, in their order on the wire
};

struct OutgoingMessage {
    std::string to; // a user, or a room with the room prefix in front
    std::string text;
    bool receipt_requested = false;    // never granted for a room
    std::optional<DateTime> expires{}; // server's local time; the server's own rule when there is none
};

namespace requests {

Request message(const OutgoingMessage& message);
Request typing(std::string_view to);
Request receipt(MessageId id);
Request last_version();
Request where_is_buddy(std::string_view name);
Request active_users();
Request on_line_buddies();
Request room_list();
Request all_buddies();
/// @param text  part of a screen, first or last name.
Request find_user(std::string_view text);
Request set_status(std::string_view status);
Request add_buddy(std::string_view name, std::string_view group);
Request delete_buddy(std::string_view name);
Request report_version(std::string_view version);
Request check_auto_reply();
Request save_auto_reply(bool enabled, std::string_view text);
Request buddy_details(std::string_view buddy);
Request update_buddy_details(
    std::string_view buddy, std::string_view group, std::string_view comment, std::string_view key);
Request buddy_key(std::string_view buddy);
Request update_buddy_key(std::string_view buddy, std::string_view key);
/// Rooms are named without the prefix.
Request join_room(std::string_view room);
Request leave_room(std::string_view room);
Request room_guests(std::string_view room);
Request joined_rooms();
Request create_room(std::string_view room, std::string_view encryption_key);
Request delete_room(std::string_view room);
Request ask_for_transfer(TransferKind kind, std::string_view to);
Request answer_transfer(TransferKind kind, std::string_view to, bool accepted);
Request administrator();
Request echo();

} // namespace requests

struct Session {
    std::string id;
    std::string own_name;
    std::string own_address; // as the client sees it
};

/// The parameters of a request as they follow its keyword: the session, the own name, the fields. Blanks of
/// the values that may have some are substituted, those at the ends of all but `msg` are dropped.
/// @return nothing when the server would read any of the values as something else.
std::optional<std::string> compose_parameters(
    const helpers::MessageParser& parser, const Session& session, const Request& request);

/// Most characters of a request in its envelope: the server counts them in 16 bits.
inline constexpr std::size_t kMaxRequestCharacters = 32'767;
/// Most chunks in which the server sends a text.
inline constexpr std::size_t kMaxChunks = 16;

/// Whether the server can send the message on, with the fields that it adds.
bool is_deliverable(const OutgoingMessage& message, std::string_view own_name);

} // namespace qz::client
