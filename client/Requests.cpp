#include "client/Requests.h"

#include "base/Text.h"
#include "helpers/Frame.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace qz::client {

namespace {

using helpers::protocol_keywords;

constexpr std::string_view kText = "msg"; // travels as it stands, blanks and all

/// The values whose blanks the server brings back.
constexpr std::array<std::string_view, 7> kSubstituted{
    "screennameto", "roomname", "group", "comment", "status", "encryptionkey", "message"};

std::string value_on_wire(std::string_view key, std::string_view value)
{
    auto text = valid_utf8(value);
    if (key == kText) {
        return text;
    }
    text = trim(text);
    const bool substituted = std::find(kSubstituted.begin(), kSubstituted.end(), key) != kSubstituted.end();
    return substituted ? replace_all(text, " ", protocol_keywords().BlankSubstitute) : text;
}

/// The server takes "myIP=" and its value out of the whole body, also in the middle of what somebody typed.
std::string as_received(const helpers::MessageParser& parser, const std::string& body)
{
    return replace_all(body, "myIP=" + parser.value(body, "myIP"), "");
}

std::string expiration_text(DateTime time)
{
    const auto civil = time.civil();
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%02d/%02d/%04d_%02d.%02d.%02d", civil.month, civil.day,
        civil.year, civil.hour, civil.minute, civil.second);
    return text.data();
}

Request about_own_name(const std::string& keyword)
{
    return {keyword, "screenname", {}};
}

/// Rooms are named in lower case.
Request room_request(std::string_view action, std::string_view room)
{
    Request request{protocol_keywords().Room, "screenname", {{"action", std::string(action)}}};
    if (!room.empty()) {
        request.fields.emplace_back("roomname", lower(room));
    }
    return request;
}

Request about_buddy(const std::string& keyword, std::string_view action, std::string_view buddy)
{
    return {keyword, "screenname", {{"action", std::string(action)}, {"buddy", std::string(buddy)}}};
}

const std::string& keyword_of(TransferKind kind)
{
    return kind == TransferKind::File ? protocol_keywords().FileTransfer : protocol_keywords().ScreenTransfer;
}

} // namespace

std::string_view describe(SendResult result)
{
    switch (result) {
    case SendResult::Sent:
        return "Sent.";
    case SendResult::NotLoggedOn:
        return "Not logged on.";
    case SendResult::NoRecipient:
        return "The message has no recipient.";
    case SendResult::NoText:
        return "The message has no text.";
    case SendResult::TooLong:
        return "The text is too long to be delivered.";
    case SendResult::NotTransmittable:
        return "A value holds text that the server would read as something else.";
    case SendResult::OutputFull:
        return "Too much is waiting to be sent.";
    }
    return {};
}

namespace requests {

Request message(const OutgoingMessage& message)
{
    Request request{protocol_keywords().InstantMessage, "screennamefrom",
        {{"screennameto",
            trim(message.to).starts_with(protocol_keywords().RoomPrefix) ? lower(message.to) : message.to}}};
    if (message.receipt_requested) {
        request.fields.emplace_back("receiptrequested", helpers::boolean_text(true));
    }
    if (message.expires) {
        request.fields.emplace_back("expirationend", expiration_text(*message.expires));
    }
    request.fields.emplace_back(kText, message.text);
    return request;
}

Request typing(std::string_view to)
{
    return {protocol_keywords().TypingNotice, "screennamefrom", {{"screennameto", std::string(to)}}};
}

Request receipt(MessageId id)
{
    return {protocol_keywords().MessageReceipt, {}, {{"msgid", std::to_string(id)}}};
}

Request last_version()
{
    return {protocol_keywords().LastVersionRequest, {}, {}};
}

Request where_is_buddy(std::string_view name)
{
    return {protocol_keywords().WhereIsBuddy, {}, {{"screennametofind", std::string(name)}}};
}

Request active_users()
{
    return {protocol_keywords().ActiveUsers, {}, {}};
}

Request on_line_buddies()
{
    return about_own_name(protocol_keywords().OnLineBuddies);
}

Request room_list()
{
    return about_own_name(protocol_keywords().RoomList);
}

Request all_buddies()
{
    return {protocol_keywords().AllBuddies, {}, {}};
}

Request find_user(std::string_view text)
{
    return {protocol_keywords().FindBuddy, {}, {{"screennametofind", std::string(text)}}};
}

Request set_status(std::string_view status)
{
    return {protocol_keywords().StatusChange, "screenname", {{"status", std::string(status)}}};
}

Request add_buddy(std::string_view name, std::string_view group)
{
    return {protocol_keywords().AddBuddy, "screenname",
        {{"newbuddy", std::string(name)}, {"group", std::string(group)}}};
}

Request delete_buddy(std::string_view name)
{
    return {protocol_keywords().DeleteBuddy, "screenname", {{"screenname2delete", std::string(name)}}};
}

Request report_version(std::string_view version)
{
    return {protocol_keywords().ClientVersionReport, "screenname", {{"clientversion", std::string(version)}}};
}

Request check_auto_reply()
{
    return {protocol_keywords().AutoReply, "screenname", {{"action", "check"}}};
}

Request save_auto_reply(bool enabled, std::string_view text)
{
    return {protocol_keywords().AutoReply, "screenname",
        {{"action", "update"}, {"status", helpers::boolean_text(enabled)}, {"message", std::string(text)}}};
}

Request buddy_details(std::string_view buddy)
{
    return about_buddy(protocol_keywords().BuddyDetails, "get", buddy);
}

Request update_buddy_details(
    std::string_view buddy, std::string_view group, std::string_view comment, std::string_view key)
{
    auto request = about_buddy(protocol_keywords().BuddyDetails, "update", buddy);
    request.fields.emplace_back("group", group);
    request.fields.emplace_back("comment", comment);
    request.fields.emplace_back("key", key);
    return request;
}

Request buddy_key(std::string_view buddy)
{
    return about_buddy(protocol_keywords().BuddyKey, "get", buddy);
}

Request update_buddy_key(std::string_view buddy, std::string_view key)
{
    auto request = about_buddy(protocol_keywords().BuddyKey, "update", buddy);
    request.fields.emplace_back("key", key);
    return request;
}

Request join_room(std::string_view room)
{
    return room_request("join", room);
}

Request leave_room(std::string_view room)
{
    return room_request("leave", room);
}

Request room_guests(std::string_view room)
{
    return room_request("guest", room);
}

Request joined_rooms()
{
    return room_request("whereiam", {});
}

Request create_room(std::string_view room, std::string_view encryption_key)
{
    auto request = room_request("createnew", room);
    request.fields.emplace_back("encryptionkey", encryption_key);
    return request;
}

Request delete_room(std::string_view room)
{
    return room_request("delete", room);
}

Request ask_for_transfer(TransferKind kind, std::string_view to)
{
    return {keyword_of(kind), "screennamefrom", {{"action", "request"}, {"screennameto", std::string(to)}}};
}

Request answer_transfer(TransferKind kind, std::string_view to, bool accepted)
{
    return {keyword_of(kind), "screennamefrom",
        {{"action", "answer"}, {"filetransfer", accepted ? "accepted" : "denied"},
            {"screennameto", std::string(to)}}};
}

Request administrator()
{
    return about_own_name(protocol_keywords().AdminScreenName);
}

Request echo()
{
    return {protocol_keywords().Echo, {}, {}};
}

} // namespace requests

std::optional<std::string> compose_parameters(
    const helpers::MessageParser& parser, const Session& session, const Request& request)
{
    std::vector<std::pair<std::string, std::string>> fields{{"sessionidvalue", session.id}};
    if (!request.own_name_key.empty()) {
        fields.emplace_back(request.own_name_key, value_on_wire(request.own_name_key, session.own_name));
    }
    bool names_address = false;
    for (const auto& [key, value] : request.fields) {
        fields.emplace_back(key, value_on_wire(key, value));
        names_address = names_address || value.find("myIP=") != std::string::npos;
    }
    if (names_address && !session.own_address.empty()) {
        // With an address of its own in the body, only that one is taken out.
        fields.emplace(fields.begin() + 1, "myIP", session.own_address);
    }
    std::string body;
    for (const auto& [key, value] : fields) {
        body.append(body.empty() ? "" : " ").append(key).append("=").append(value);
    }
    // A key hidden in a value would cut that value short. Reading everything back as the server will read it
    // finds all such cases at once.
    const auto received = as_received(parser, body);
    const bool reads_back = std::all_of(fields.begin(), fields.end(), [&](const auto& field) {
        return field.first == "myIP" || parser.value(received, field.first) == field.second;
    });
    return reads_back ? std::optional(body) : std::nullopt;
}

bool is_deliverable(const OutgoingMessage& message, std::string_view own_name)
{
    // The longest that the server makes of it: the number of 16 digits, both times, and for a room the name
    // of a member, which nobody here knows.
    constexpr std::size_t kLongestName = 255;
    constexpr std::size_t kNumbersAndMarks = 24;
    constexpr std::string_view kFields = "msg screennamefrom= screennameto= receivedtime=yyyy-mm-dd hh:mm:ss "
                                         "expirationtime=yyyy-mm-dd hh:mm:ss receiptrequested=False msg=";
    auto characters =
        kFields.size() + kNumbersAndMarks + character_count(own_name) + character_count(message.to);
    if (message.to.starts_with(protocol_keywords().RoomPrefix)) {
        characters += std::string_view(" roomsender=").size() + kLongestName;
    }
    return characters + character_count(message.text) <= kMaxChunks * helpers::kChunkCharacters;
}

} // namespace qz::client
