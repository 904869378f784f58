#include "client/Incoming.h"

#include "base/Text.h"
#include "helpers/MessageParser.h"
#include "helpers/ProtocolKeywords.h"
#include "platform/sodium/SodiumCrypto.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <system_error>
#include <utility>

namespace qz::client {

namespace {

using helpers::protocol_keywords;
using helpers::ProtocolKeywords;

constexpr char kEntrySeparator = '#';
constexpr std::string_view kEmptyField = "-";
constexpr std::size_t kMostFields = 3;
using Fields = std::array<std::string, kMostFields>;

std::string_view take_until(std::string_view& text, char separator)
{
    const auto piece = text.substr(0, text.find(separator));
    text.remove_prefix((std::min)(text.size(), piece.size() + 1));
    return piece;
}

/// The value as it travelled: the blanks of a list still stand between its fields only.
std::string raw_value(std::string_view body, std::string_view key)
{
    static platform::SodiumCrypto crypto; // never asked: only requests draw numbers
    static const helpers::MessageParser kParser(crypto);
    return kParser.value(body, key);
}

std::string with_blanks(std::string_view text)
{
    return replace_all(text, protocol_keywords().BlankSubstitute, " ");
}

/// The entries of a list; a field that is missing is empty, one too many is dropped.
std::vector<Fields> read_list(std::string_view text)
{
    std::vector<Fields> entries;
    while (!text.empty()) {
        auto entry = take_until(text, kEntrySeparator);
        if (entry.empty()) {
            continue;
        }
        auto& fields = entries.emplace_back();
        for (auto& field : fields) {
            const auto piece = take_until(entry, ' ');
            field = piece == kEmptyField ? std::string{} : with_blanks(piece);
        }
    }
    return entries;
}

std::vector<std::string> read_names(std::string_view text)
{
    std::vector<std::string> names;
    for (auto& fields : read_list(text)) {
        names.push_back(std::move(fields[0]));
    }
    return names;
}

std::vector<Presence> read_presences(std::string_view text)
{
    std::vector<Presence> presences;
    for (auto& fields : read_list(text)) {
        presences.push_back({std::move(fields[0]), std::move(fields[1])});
    }
    return presences;
}

template <typename Number> std::optional<Number> read_whole(std::string_view text)
{
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number < 0) {
        return std::nullopt;
    }
    return number;
}

std::optional<MessageId> read_message_id(std::string_view text)
{
    const auto id = read_whole<MessageId>(text);
    return id && *id > 0 && *id <= kGreatestMessageId ? id : std::nullopt;
}

DateTime read_time(std::string_view body, std::string_view key)
{
    return DateTime::parse(read_value(body, key)).value_or(DateTime{});
}

// One reader for each keyword; nothing means that the body is not what the keyword promises.
using Read = std::optional<Incoming>;

Read read_message(const Envelope& envelope)
{
    const auto& prefix = protocol_keywords().RoomPrefix;
    const auto body = envelope.body;
    Message message;
    message.id = envelope.number;
    message.sender = read_value(body, "screennamefrom");
    if (message.id == 0 || message.sender.empty()) {
        return std::nullopt;
    }
    if (message.sender.starts_with(prefix)) {
        message.room = message.sender.substr(prefix.size());
        message.sender = read_value(body, "roomsender");
    }
    message.recipient = read_value(body, "screennameto");
    message.text = read_value(body, "msg");
    message.received = read_time(body, "receivedtime");
    message.expires = read_time(body, "expirationtime");
    message.receipt_requested = helpers::read_boolean(read_value(body, "receiptrequested"));
    return message;
}

Read read_receipt(const Envelope& envelope)
{
    const auto id = read_message_id(read_value(envelope.body, "received"));
    return id ? Read(Receipt{*id, read_value(envelope.body, "screennameto")}) : std::nullopt;
}

Read read_typing(const Envelope& envelope)
{
    return Typing{read_value(envelope.body, "screennamefrom")};
}

Read read_status(const Envelope& envelope)
{
    return PresenceChange{{read_value(envelope.body, "screenname"), read_value(envelope.body, "status")}};
}

Read read_on_line_buddies(const Envelope& envelope)
{
    return BuddiesOnLine{read_presences(envelope.body)};
}

Read read_active_users(const Envelope& envelope)
{
    return ActiveUsers{read_presences(envelope.body)};
}

Read read_all_buddies(const Envelope& envelope)
{
    AllBuddies all;
    for (auto& fields : read_list(envelope.body)) {
        all.buddies.push_back({std::move(fields[0]), std::move(fields[1]), std::move(fields[2])});
    }
    return all;
}

Read read_found_users(const Envelope& envelope)
{
    FoundUsers found;
    for (auto& fields : read_list(envelope.body)) {
        found.users.push_back({std::move(fields[0]), std::move(fields[1]), std::move(fields[2])});
    }
    return found;
}

Read read_room_list(const Envelope& envelope)
{
    RoomList list;
    for (auto& fields : read_list(envelope.body)) {
        const auto guests = read_whole<std::int32_t>(fields[2]).value_or(0);
        list.rooms.push_back({std::move(fields[0]), std::move(fields[1]), guests});
    }
    return list;
}

Read read_where_is(const Envelope& envelope)
{
    return WhereIsBuddy{read_names(envelope.body)};
}

Read read_room(const Envelope& envelope)
{
    using Action = RoomReply::Action;
    static const std::pair<std::string_view, Action> kActions[] = {{"joinok", Action::Joined},
        {"leaveok", Action::Left}, {"guest", Action::Guests}, {"whereiam", Action::WhereIAm},
        {"createnew", Action::Created}, {"delete", Action::Deleted}};
    const auto word = read_value(envelope.body, "action");
    const auto* const found = std::find_if(
        std::begin(kActions), std::end(kActions), [&](const auto& each) { return each.first == word; });
    if (found == std::end(kActions)) {
        return std::nullopt;
    }
    RoomReply reply;
    reply.action = found->second;
    reply.user = read_value(envelope.body, "screenname");
    reply.room = read_value(envelope.body, "roomname");
    reply.names = read_names(raw_value(envelope.body, reply.action == Action::WhereIAm ? "rooms" : "guests"));
    reply.feedback = read_value(envelope.body, "feedback");
    return reply;
}

Read read_auto_reply(const Envelope& envelope)
{
    const auto action = read_value(envelope.body, "action");
    if (action == "get") {
        return AutoReplyState{
            helpers::read_boolean(read_value(envelope.body, "status")), read_value(envelope.body, "message")};
    }
    if (action == "save") {
        return AutoReplySaved{read_value(envelope.body, "answer") == protocol_keywords().AnswerYes};
    }
    return std::nullopt;
}

Read read_update(const Envelope& envelope, bool of_key)
{
    const auto action = read_value(envelope.body, "action");
    if (action != "updated" && action != "notupdated") {
        return std::nullopt;
    }
    return BuddyUpdated{read_value(envelope.body, "buddy"), action == "updated", of_key};
}

Read read_buddy_details(const Envelope& envelope)
{
    const auto body = envelope.body;
    if (read_value(body, "action") != "get") {
        return read_update(envelope, false);
    }
    return BuddyDetails{read_value(body, "buddy"), read_value(body, "firstname"),
        read_value(body, "lastname"), read_value(body, "email"), read_value(body, "imclientinuse"),
        read_value(body, "group"), read_value(body, "comment"), read_value(body, "key")};
}

Read read_buddy_key(const Envelope& envelope)
{
    if (read_value(envelope.body, "action") != "get") {
        return read_update(envelope, true);
    }
    return BuddyKey{read_value(envelope.body, "buddy"), read_value(envelope.body, "key")};
}

Read read_administrator(const Envelope& envelope)
{
    return Administrator{read_value(envelope.body, "screenname")};
}

Read read_policy(const Envelope& envelope)
{
    const auto& words = protocol_keywords();
    Policy policy;
    policy.item = envelope.keyword == words.PolicyFileTransfer ? Policy::Item::FileTransfer
        : envelope.keyword == words.PolicyScreenShot           ? Policy::Item::ScreenShot
                                                               : Policy::Item::OtherMessenger;
    policy.allowed = read_value(envelope.body, "answer") == words.AnswerAccepted;
    return policy;
}

Read read_version(const Envelope& envelope)
{
    return VersionNotice{
        read_value(envelope.body, "version"), read_value(envelope.body, "urlLastClientVersionAvailable")};
}

Read read_expiration(const Envelope& envelope)
{
    const auto minutes = read_whole<std::int32_t>(read_value(envelope.body, "expiration"));
    return minutes ? Read(ExpirationTime{*minutes}) : std::nullopt;
}

Read read_remote_command(const Envelope& envelope)
{
    return RemoteCommand{read_value(envelope.body, "remotecommand"), read_value(envelope.body, "msg")};
}

Read read_transfer(const Envelope& envelope)
{
    const auto body = envelope.body;
    Transfer transfer;
    transfer.kind =
        envelope.keyword == protocol_keywords().FileTransfer ? TransferKind::File : TransferKind::Screen;
    const auto action = read_value(body, "action");
    const auto answer = read_value(body, "filetransfer"); // also for the screen
    if (action == "answer" && (answer == "accepted" || answer == "denied")) {
        transfer.step = answer == "accepted" ? Transfer::Step::Accepted : Transfer::Step::Denied;
    } else if (action != "request") {
        return std::nullopt;
    }
    transfer.from = read_value(body, "screennamefrom");
    transfer.to = read_value(body, "screennameto");
    transfer.remote_address = read_value(body, "remoteip");
    return transfer;
}

Read read_notice(const Envelope& envelope)
{
    return Notice{std::string(envelope.body)};
}

Read read_echo(const Envelope& /*envelope*/)
{
    return Echo{};
}

struct Reader {
    const std::string ProtocolKeywords::*keyword;
    Read (*read)(const Envelope&);
};

const Reader kReaders[] = {
    {&ProtocolKeywords::InstantMessage, read_message},
    {&ProtocolKeywords::MessageReceipt, read_receipt},
    {&ProtocolKeywords::TypingNotice, read_typing},
    {&ProtocolKeywords::StatusChange, read_status},
    {&ProtocolKeywords::OnLineBuddies, read_on_line_buddies},
    {&ProtocolKeywords::ActiveUsers, read_active_users},
    {&ProtocolKeywords::AllBuddies, read_all_buddies},
    {&ProtocolKeywords::FindBuddy, read_found_users},
    {&ProtocolKeywords::RoomList, read_room_list},
    {&ProtocolKeywords::WhereIsBuddy, read_where_is},
    {&ProtocolKeywords::Room, read_room},
    {&ProtocolKeywords::AutoReply, read_auto_reply},
    {&ProtocolKeywords::BuddyDetails, read_buddy_details},
    {&ProtocolKeywords::BuddyKey, read_buddy_key},
    {&ProtocolKeywords::AdminScreenName, read_administrator},
    {&ProtocolKeywords::PolicyFileTransfer, read_policy},
    {&ProtocolKeywords::PolicyScreenShot, read_policy},
    {&ProtocolKeywords::PolicyAOLIM, read_policy},
    {&ProtocolKeywords::LastVersionRequest, read_version},
    {&ProtocolKeywords::ExpirationTime, read_expiration},
    {&ProtocolKeywords::RemoteCommand, read_remote_command},
    {&ProtocolKeywords::FileTransfer, read_transfer},
    {&ProtocolKeywords::ScreenTransfer, read_transfer},
    {&ProtocolKeywords::Notice, read_notice},
    {&ProtocolKeywords::Echo, read_echo},
};

bool take(std::string_view& text, std::string_view what)
{
    if (!text.starts_with(what)) {
        return false;
    }
    text.remove_prefix(what.size());
    return true;
}

} // namespace

std::optional<Envelope> read_envelope(std::string_view text)
{
    const auto& words = protocol_keywords();
    if (!take(text, words.EnvelopeStart) || !take(text, words.NumberStart)
        || !text.ends_with(words.EnvelopeEnd)) {
        return std::nullopt;
    }
    text.remove_suffix(words.EnvelopeEnd.size());
    const auto digits = text.substr(0, text.find(words.NumberEnd));
    const auto number = read_message_id(digits);
    text.remove_prefix(digits.size());
    if (!number || !take(text, words.NumberEnd) || !take(text, "\r\n")) {
        return std::nullopt;
    }
    Envelope envelope;
    envelope.number = *number;
    envelope.keyword = take_until(text, ' ');
    envelope.body = text;
    return envelope;
}

Incoming read_incoming(const Envelope& envelope)
{
    const auto* const reader = std::find_if(std::begin(kReaders), std::end(kReaders),
        [&](const Reader& each) { return protocol_keywords().*each.keyword == envelope.keyword; });
    if (reader != std::end(kReaders)) {
        if (auto incoming = reader->read(envelope)) {
            return *std::move(incoming);
        }
    }
    return Unknown{std::string(envelope.keyword), std::string(envelope.body)};
}

std::string read_value(std::string_view body, std::string_view key)
{
    auto value = raw_value(body, key);
    return key == "msg" ? value : with_blanks(value);
}

} // namespace qz::client
