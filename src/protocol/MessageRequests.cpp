#include "protocol/MessageRequests.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"
#include "platform/Sockets.h"
#include "protocol/Values.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <string_view>

namespace qz::protocol {

using helpers::protocol_keywords;

namespace {

constexpr std::int64_t kSecondsPerMinute = 60;
constexpr std::int64_t kRoomSeconds = 60; // room messages are for those who are there now
constexpr std::int64_t kLongOver = 86400; // seconds, so that clocks of clients may differ

bool is_room(const std::string& recipient)
{
    return recipient.starts_with(protocol_keywords().RoomPrefix);
}

std::string room_of(const std::string& recipient)
{
    return replace_all(recipient, protocol_keywords().RoomPrefix, "");
}

/// Takes a number off the front of the text, and what must stand behind it.
/// @return the number with leading zeros; empty when it has fewer or more digits.
std::string take_part(std::string_view& text, std::size_t least_digits, std::size_t digits, char behind)
{
    const auto count = (std::min)(text.find_first_not_of("0123456789"), text.size());
    const bool at_end = behind == '\0';
    if (count < least_digits || count > digits || at_end != (count == text.size())
        || (!at_end && text[count] != behind)) {
        return {};
    }
    auto part = std::string(digits - count, '0').append(text.substr(0, count));
    text.remove_prefix(at_end ? count : count + 1);
    return part;
}

/// Reads "mm/dd/yyyy hh.mm.ss"; each part but the year may have one digit. Nothing for what is no date.
std::optional<DateTime> expiration_in(std::string_view text)
{
    const auto month = take_part(text, 1, 2, '/');
    const auto day = take_part(text, 1, 2, '/');
    const auto year = take_part(text, 4, 4, ' ');
    const auto hour = take_part(text, 1, 2, '.');
    const auto minute = take_part(text, 1, 2, '.');
    const auto second = take_part(text, 1, 2, '\0');
    return DateTime::parse(
        joined({year, "-", month, "-", day, " ", hour, ":", minute, ":", second})); // an empty part is none
}

} // namespace

MessageRequests::MessageRequests(People people, Ways ways, Rules rules, const helpers::MessageParser& parser,
    const Clock& clock, Journal& journal)
    : people_(people), ways_(ways), rules_(rules), parser_(parser), clock_(clock), journal_(journal)
{
}

void MessageRequests::Request_Msg(const Request& request)
{
    ways_.queue.require_whole_turn();
    const bool settled = guarded(journal_, "Request_Msg", request.remote_ip, false, [&] {
        take_message(request);
        return true;
    });
    if (!settled) {
        refuse(message_in(request));
    }
}

void MessageRequests::take_message(const Request& request)
{
    auto message = message_in(request);
    if (!recipient_exists(message)) {
        return;
    }
    const auto expiration = expiration_of(request);
    if (!expiration) {
        tell(message.sender,
            "The latest time of delivery is no date. Your message to " + message.recipient
                + " was not accepted!");
        return;
    }
    message.expiration_time = *expiration;
    if (const auto longest = rules_.deployment.longest_expiration()) {
        message.expiration_time = (std::min)(
            message.expiration_time, clock_.now().plus_seconds(std::chrono::seconds(*longest).count()));
    }
    if (people_.auto_replies.Retrieve_AutoReply(message.sender)) {
        tell(message.sender, "You have AutoReply On");
    }
    if (message.recipient == message.sender) {
        tell(message.sender, "You can't send messages to yourself!");
    } else if (is_room(message.recipient)) {
        send_to_room(std::move(message));
    } else {
        send_to_user(message);
    }
}

/// The server's own expiration where the request names none; nothing when it names no date.
std::optional<DateTime> MessageRequests::expiration_of(const Request& request) const
{
    const auto text = replace_all(parser_.value(request.parameters, "expirationend"), "_", " ");
    return trim(text).empty()
        ? clock_.now().plus_seconds(kSecondsPerMinute * rules_.settings.get_Message_Expiration_Time())
        : expiration_in(trim(text));
}

/// The message as the request words it, but for its expiration.
queue::NewMessage MessageRequests::message_in(const Request& request) const
{
    queue::NewMessage message;
    message.sender = request.user;
    message.recipient = blank_value(parser_, request.parameters, "screennameto");
    message.text = parser_.value(request.parameters, "msg");
    message.msg_id = request.number;
    message.remote_ip = request.remote_ip;
    message.lost_turns = ways_.queue.lost_turns();
    message.receipt_requested = !is_room(message.recipient)
        && helpers::read_boolean(parser_.value(request.parameters, "receiptrequested"));
    return message;
}

/// Tells the sender when the recipient does not exist. What does not exist as given is looked for in lower
/// case.
bool MessageRequests::recipient_exists(queue::NewMessage& message)
{
    const auto exists = [&](const std::string& name) {
        return is_room(name) ? people_.rooms.RoomExists(room_of(name))
                             : people_.accounts.ScreenNameExist(name, message.remote_ip);
    };
    const auto given = message.recipient;
    if (is_room(given) && rules_.deployment.room_names()) {
        message.recipient = lower(given); // as rooms are named then
    }
    if (exists(message.recipient)) {
        return true;
    }
    message.recipient = lower(given);
    if (exists(message.recipient)) {
        return true;
    }
    tell(message.sender,
        (is_room(given) ? "The room " + room_of(given) : "The buddy " + given) + " doesn't exist!");
    return false;
}

void MessageRequests::send_to_room(queue::NewMessage message)
{
    message.room = lower(room_of(message.recipient));
    if (!people_.rooms.RoomExists(message.room)) {
        return;
    }
    people_.rooms.AddUserInRoom(message.sender, message.room, message.remote_ip);
    if (!people_.rooms.UserAlreadyInRoom(message.sender, message.room)) {
        refuse(message);
        return;
    }
    message.expiration_time = clock_.now().plus_seconds(kRoomSeconds);
    const auto members = people_.rooms.members_of(message.room);
    if (tell_full(message, members.size())) {
        return;
    }
    if (members.size() > 2) { // the sender is one of them
        message.text.set_several_recipients();
    }
    for (const auto& member : members) {
        if (member != message.sender) {
            message.recipient = member;
            put(message);
        }
    }
}

void MessageRequests::send_to_user(const queue::NewMessage& message)
{
    if (tell_over(message) || tell_full(message, 1)) {
        return;
    }
    const auto& keywords = protocol_keywords();
    const auto looks = "You are sending a message to " + message.recipient + " that looks to be ";
    const auto status = people_.presence.get_UserStatus(message.recipient);
    if (status == keywords.StatusOffLine) {
        tell(message.sender,
            looks + "offline; the system will try to delivery your message until to "
                + message.expiration_time.text());
    } else if (status != keywords.StatusOnLine) {
        tell(message.sender,
            looks + status
                + "; the system will deliver your message but it's possible it will be not read soon");
    }
    put(message);
}

/// With LongestExpirationDays, tells the sender when the time of delivery lies so far back that it is a
/// mistake.
bool MessageRequests::tell_over(const queue::NewMessage& message)
{
    if (!rules_.deployment.longest_expiration()
        || message.expiration_time >= clock_.now().plus_seconds(-kLongOver)
        || ways_.queue.is_repeated(message)) {
        return false;
    }
    tell(message.sender,
        "The latest time of delivery is long over. Your message to " + message.recipient
            + " was not accepted!");
    return true;
}

/// The quota that keeps a message out; none when all let it in.
/// @param members  to whom it goes: the number of the sender's messages is allowed for each of them.
const char* MessageRequests::quota_against(const queue::NewMessage& message, std::size_t members) const
{
    const auto& queue = ways_.queue;
    const auto& rules = rules_.deployment;
    const bool to_room = !message.room.empty();
    const auto reaches = [](std::size_t count, std::optional<std::int32_t> most, std::size_t times = 1) {
        return most && count >= static_cast<std::size_t>(*most) * times;
    };
    const auto passes = [&](std::size_t bytes, std::optional<std::int32_t> most) {
        return most && bytes + message.text.size() > static_cast<std::size_t>(*most);
    };
    const auto from_sender = queue.count_from(message.sender, to_room);
    if (reaches(from_sender, rules.queued_per_sender(), members)) {
        return "too many messages from you are waiting to be delivered";
    }
    if (passes(queue.bytes_from(message.sender), rules.queued_bytes_per_sender())) {
        return "too much text from you is waiting to be delivered";
    }
    if (to_room) {
        return nullptr;
    }
    const auto to_recipient = queue.count_to(message.recipient);
    if (reaches(to_recipient, rules.queued_per_recipient())) {
        return "too many messages for this recipient are waiting to be delivered";
    }
    if (passes(queue.bytes_to(message.recipient), rules.queued_bytes_per_recipient())) {
        return "too much text for this recipient is waiting to be delivered";
    }
    const auto most = rules.queued_per_pair();
    return reaches(from_sender, most) && reaches(to_recipient, most) // or the two have fewer between them
            && reaches(queue.count_between(message.sender, message.recipient), most)
        ? "too many messages from you to this recipient are waiting to be delivered"
        : nullptr;
}

/// Tells the sender when a quota keeps the message out.
/// @param members  to whom it goes.
bool MessageRequests::tell_full(const queue::NewMessage& message, std::size_t members)
{
    const char* const why = quota_against(message, members);
    if (why == nullptr || ways_.queue.is_repeated(message)) {
        return false;
    }
    tell(message.sender,
        "Your message to " + message.recipient + " has not been accepted: " + why + "; try again later");
    return true;
}

void MessageRequests::put(const queue::NewMessage& message)
{
    if (rules_.deployment.durable_queue() && message.lost_turns != ways_.queue.lost_turns()) {
        return; // while the sender was being told something
    }
    const bool queued =
        ways_.queue.QueueMessage_Put(message, people_.connections.UserIsOnline(message.recipient));
    if (!queued) {
        refuse(message);
    }
    ways_.queue.QueueMessage_Send();
}

/// Where DurableQueue is on, a sender who hears nothing of a message may take it for accepted.
void MessageRequests::refuse(const queue::NewMessage& message)
{
    if (rules_.deployment.durable_queue()) {
        tell(message.sender, "Your message to " + message.recipient + " was not accepted!");
    }
}

void MessageRequests::tell(const std::string& user, const std::string& notice)
{
    ways_.sender.SendData(people_.connections.Retrieve_UserSocket(user), protocol_keywords().Notice, notice);
}

void MessageRequests::Request_Typing(const Request& request)
{
    Send_TypingMessage(
        request.user, screen_name(parser_, request.parameters, "screennameto"), request.remote_ip);
}

void MessageRequests::Send_TypingMessage(
    const std::string& sender, const std::string& recipient, const std::string& remote_ip)
{
    guarded(journal_, "Send_TypingMessage", remote_ip, [&] {
        const auto to = lower(recipient);
        const auto socket = people_.connections.Retrieve_UserSocket(to);
        if (!people_.connections.UserIsOnline(to) || ways_.pool.state(socket) != platform::kSocketConnected) {
            return;
        }
        ways_.sender.SendData(socket, protocol_keywords().TypingNotice, "screennamefrom=" + sender);
        journal_.Log(sender + " is typing to " + to, sender, remote_ip);
    });
}

void MessageRequests::Request_MsgReceipt(const Request& request)
{
    const bool own_only = rules_.deployment.verify_receipt() || rules_.deployment.keep_until_confirmed();
    ways_.queue.QueueMessage_SetToDelivered(leading_number(parser_.value(request.parameters, "msgid")),
        own_only ? people_.connections.Retrieve_ScreenNameBySocket(request.socket) : std::string{});
}

void MessageRequests::Send_InstantMessage(const std::string& message, const std::string& screen_name)
{
    guarded(journal_, "Send_InstantMessage", no_address, [&] {
        if (people_.accounts.ScreenNameExist(screen_name)) {
            tell(screen_name, message);
            journal_.log_own("Message sent correctly to " + screen_name);
        }
    });
}

} // namespace qz::protocol
