// What the server says, as plain values. Every text is what the server sent: a program that shows one on a
// terminal or in a page escapes it.
#pragma once

#include "base/DateTime.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qz::client {

/// The number that a message's sender gave it, 1 to 2^53 - 1.
using MessageId = std::uint64_t;
inline constexpr MessageId kGreatestMessageId = (MessageId{1} << 53U) - 1;

/// An instant message. The times are the server's local time; empty when they cannot be read.
struct Message {
    MessageId id = 0;
    std::string sender; // who wrote it, also in a room
    std::string room;   // without the prefix; empty for a message to one user
    std::string recipient;
    std::string text;
    DateTime received;
    DateTime expires;
    bool receipt_requested = false;
};

/// The recipient has confirmed a message that asked for it. May come twice.
struct Receipt {
    MessageId id = 0;
    std::string recipient;
};

struct Typing {
    std::string sender;
};

struct Presence {
    std::string name;
    std::string status;
};
/// A buddy's status has changed.
struct PresenceChange {
    Presence presence;
};
struct BuddiesOnLine {
    std::vector<Presence> buddies;
};
struct ActiveUsers {
    std::vector<Presence> users;
};

struct Buddy {
    std::string name;
    std::string group;
    std::string status;
};
struct AllBuddies {
    std::vector<Buddy> buddies;
};

struct FoundUser {
    std::string name;
    std::string first_name;
    std::string last_name;
};
struct FoundUsers {
    std::vector<FoundUser> users;
};

struct RoomEntry {
    std::string name;
    std::string owner;
    std::int32_t guests = 0;
};
struct RoomList {
    std::vector<RoomEntry> rooms;
};

/// The rooms a buddy is in.
struct WhereIsBuddy {
    std::vector<std::string> rooms;
};

/// The answer to a request about rooms; which members are filled follows from the action.
struct RoomReply {
    enum class Action { Joined, Left, Guests, WhereIAm, Created, Deleted };
    Action action = Action::Joined;
    std::string user;               // Joined, Left
    std::string room;               // Joined, Left, Guests
    std::vector<std::string> names; // the Guests; the rooms of WhereIAm
    std::string feedback;           // Created, Deleted: one sentence, also when it was not done
};

struct AutoReplyState {
    bool enabled = false;
    std::string message;
};
struct AutoReplySaved {
    bool saved = false;
};

struct BuddyDetails {
    std::string buddy;
    std::string first_name;
    std::string last_name;
    std::string email;
    std::string client_version;
    std::string group;
    std::string comment;
    std::string key;
};
struct BuddyKey {
    std::string buddy;
    std::string key;
};
/// The answer to an update of a buddy's details or, when `of_key`, of its key.
struct BuddyUpdated {
    std::string buddy;
    bool updated = false;
    bool of_key = false;
};

struct Administrator {
    std::string name;
};

struct Policy {
    enum class Item { FileTransfer, ScreenShot, OtherMessenger };
    Item item = Item::FileTransfer;
    bool allowed = false;
};

struct VersionNotice {
    std::string version;
    std::string url;
};

/// How long the server keeps a message that cannot be delivered.
struct ExpirationTime {
    std::int32_t minutes = 0;
};

struct RemoteCommand {
    std::string command;
    std::string text;
};

enum class TransferKind { File, Screen };

/// A step of another user's transfer. The server only passes it on; the two clients connect by themselves.
struct Transfer {
    enum class Step { Request, Accepted, Denied };
    TransferKind kind = TransferKind::File;
    Step step = Step::Request;
    std::string from;
    std::string to;
    std::string remote_address; // of the client that took this step
};

/// A sentence for the user.
struct Notice {
    std::string text;
};

/// The answer to an echo request of the program.
struct Echo { };

/// An answer, a list for instance, that is longer than the server can send: it stops after the 16th chunk, so
/// none of the answer can be shown.
struct CutOff {
    std::int32_t chunks = 0; // that the whole answer would have
};

/// What this library does not know, or what lacks a field that it needs.
struct Unknown {
    std::string keyword;
    std::string body;
};

using Incoming = std::variant<Message, Receipt, Typing, PresenceChange, BuddiesOnLine, ActiveUsers,
    AllBuddies, FoundUsers, RoomList, WhereIsBuddy, RoomReply, AutoReplyState, AutoReplySaved, BuddyDetails,
    BuddyKey, BuddyUpdated, Administrator, Policy, VersionNotice, ExpirationTime, RemoteCommand, Transfer,
    Notice, Echo, CutOff, Unknown>;

struct Envelope {
    MessageId number = 0;
    std::string_view keyword; // both are parts of the text that was read
    std::string_view body;
};

/// Takes an envelope apart; nothing when the text is none.
std::optional<Envelope> read_envelope(std::string_view text);

/// What an envelope says. Foreign bytes do no harm: what cannot be read is Unknown.
Incoming read_incoming(const Envelope& envelope);

/// The value of a key in a body, with its blanks back.
std::string read_value(std::string_view body, std::string_view key);

} // namespace qz::client
