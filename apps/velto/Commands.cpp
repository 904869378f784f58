#include "Commands.h"

#include "Files.h"
#include "Session.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace velto {

namespace {

using namespace qz::client;
using Kind = Line::Kind;

constexpr int kMostMinutes = 60 * 24 * 365;

/// A room as the server names it, in lower case, whether it was typed with its prefix or without.
std::string room_in(const std::string& text)
{
    const auto& prefix = qz::helpers::protocol_keywords().RoomPrefix;
    return qz::lower(text.starts_with(prefix) ? text.substr(prefix.size()) : text);
}

/// The room that was named, else the one in which the user is writing.
std::string this_room(const Session& session, const Arguments& arguments)
{
    const auto& prefix = qz::helpers::protocol_keywords().RoomPrefix;
    const auto named = arguments.rest();
    return !named.empty()                       ? room_in(named)
        : session.partner().starts_with(prefix) ? room_in(session.partner())
                                                : "";
}

std::optional<int> number_in(const std::string& text)
{
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc{} && end == text.data() + text.size();
    return whole && number > 0 && number <= kMostMinutes ? std::optional(number) : std::nullopt;
}

std::string with_status(const std::string& name, const std::string& status)
{
    return status.empty() ? name : name + " (" + status + ")";
}

/// Shows one line for each entry of a list, or what it means that there is none.
template <typename List> void show_list(Session& session, const List& lines, const std::string& if_none)
{
    if (lines.empty()) {
        session.show(Kind::News, if_none);
    }
    for (const auto& line : lines) {
        session.show(Kind::News, line);
    }
}

void write_to(Session& session, Arguments arguments)
{
    const auto typed = arguments.word();
    const bool is_room = typed.starts_with(qz::helpers::protocol_keywords().RoomPrefix);
    const auto to = is_room ? room_name(room_in(typed)) : typed;
    const auto text = arguments.rest();
    session.talk_to(to);
    if (text.empty()) {
        session.show(Kind::News, "What you write now goes to " + to);
    } else {
        session.send_text(to, text);
    }
}

void join(Session& session, Arguments arguments)
{
    const auto room = room_in(arguments.rest());
    session.ask<RoomReply>(requests::join_room(room), [&session, room](const RoomReply* reply) {
        // The server answers nothing to somebody who is in the room already, nor about a room that is not
        // there.
        session.ask<RoomReply>(
            requests::joined_rooms(), [&session, room, joined = reply != nullptr](const RoomReply* rooms) {
                const bool within = joined
                    || (rooms != nullptr
                        && std::any_of(rooms->names.begin(), rooms->names.end(),
                            [&](const auto& each) { return qz::equal_ignoring_case(each, room); }));
                if (!within) {
                    session.show(Kind::Trouble,
                        "There is no room " + room_name(room) + ". /rooms lists them, /create makes one.");
                    return;
                }
                session.entered_room(room);
                session.talk_to(room_name(room));
            });
    });
}

void leave(Session& session, Arguments arguments)
{
    const auto room = this_room(session, arguments);
    if (room.empty()) {
        session.show(Kind::Trouble, "Which room? /leave ROOM");
        return;
    }
    session.ask<RoomReply>(requests::leave_room(room), [&session, room](const RoomReply* reply) {
        session.left_room(room);
        if (session.partner() == room_name(room)) {
            session.talk_to({});
        }
        session.show(Kind::News, (reply != nullptr ? "You have left " : "You are not in ") + room_name(room));
    });
}

void list_rooms(Session& session, Arguments /*arguments*/)
{
    session.ask<RoomList>(requests::room_list(), [&session](const RoomList* list) {
        std::vector<std::string> lines;
        for (const auto& room : list == nullptr ? std::vector<RoomEntry>{} : list->rooms) {
            lines.push_back(room_name(room.name) + ", made by " + room.owner + ", "
                + std::to_string(room.guests) + (room.guests == 1 ? " member" : " members"));
        }
        show_list(session, lines, "There are no rooms. /create makes one.");
    });
}

void list_guests(Session& session, Arguments arguments)
{
    const auto room = this_room(session, arguments);
    if (room.empty()) {
        session.show(Kind::Trouble, "Which room? /guests ROOM");
        return;
    }
    session.ask<RoomReply>(requests::room_guests(room), [&session, room](const RoomReply* reply) {
        std::string names;
        for (const auto& name : reply == nullptr ? std::vector<std::string>{} : reply->names) {
            names += (names.empty() ? "" : ", ") + name;
        }
        session.show(Kind::News,
            names.empty() ? room_name(room) + " is empty, or does not exist."
                          : "In " + room_name(room) + ": " + names);
    });
}

void tell_feedback(Session& session, const Request& request)
{
    session.ask<RoomReply>(request, [&session](const RoomReply* reply) {
        session.show(Kind::Notice, reply == nullptr ? "The server did not answer." : reply->feedback);
    });
}

void create_room(Session& session, Arguments arguments)
{
    tell_feedback(session, requests::create_room(room_in(arguments.rest()), {}));
}

void delete_room(Session& session, Arguments arguments)
{
    tell_feedback(session, requests::delete_room(room_in(arguments.rest())));
}

void list_buddies(Session& session, Arguments /*arguments*/)
{
    session.ask<AllBuddies>(requests::all_buddies(), [&session](const AllBuddies* list) {
        std::vector<std::string> lines;
        for (const auto& buddy : list == nullptr ? std::vector<Buddy>{} : list->buddies) {
            lines.push_back(
                buddy.name + " is " + buddy.status + (buddy.group.empty() ? "" : ", in " + buddy.group));
        }
        show_list(session, lines, "You have no buddies. /add NAME adds one.");
    });
}

/// The server does not answer when a buddy is added or removed; its list of them shows what was done.
void show_if_buddy(
    Session& session, const std::string& name, const std::string& if_so, const std::string& if_not)
{
    session.ask<AllBuddies>(requests::all_buddies(), [&session, name, if_so, if_not](const AllBuddies* list) {
        const bool is_one = list != nullptr
            && std::any_of(list->buddies.begin(), list->buddies.end(),
                [&](const Buddy& buddy) { return qz::equal_ignoring_case(buddy.name, name); });
        session.show(Kind::News, name + (is_one ? if_so : if_not));
    });
}

void add_buddy(Session& session, Arguments arguments)
{
    const auto name = arguments.word();
    if (session.request(requests::add_buddy(name, arguments.rest()))) {
        show_if_buddy(session, name, " is your buddy", " was not added: there is nobody of that name");
    }
}

void remove_buddy(Session& session, Arguments arguments)
{
    const auto name = arguments.word();
    if (session.request(requests::delete_buddy(name))) {
        show_if_buddy(session, name, " was not removed", " is not your buddy any more");
    }
}

void find(Session& session, Arguments arguments)
{
    session.ask<FoundUsers>(requests::find_user(arguments.rest()), [&session](const FoundUsers* found) {
        std::vector<std::string> lines;
        for (const auto& user : found == nullptr ? std::vector<FoundUser>{} : found->users) {
            lines.push_back(user.name + ": " + user.first_name + " " + user.last_name);
        }
        show_list(session, lines, "Nobody was found.");
    });
}

void where_is(Session& session, Arguments arguments)
{
    const auto name = arguments.rest();
    session.ask<WhereIsBuddy>(requests::where_is_buddy(name), [&session, name](const WhereIsBuddy* where) {
        std::string rooms;
        for (const auto& room : where == nullptr ? std::vector<std::string>{} : where->rooms) {
            rooms += (rooms.empty() ? "" : ", ") + room_name(room);
        }
        session.show(Kind::News, name + " is in " + (rooms.empty() ? "no room" : rooms));
    });
}

void show_details(Session& session, Arguments arguments)
{
    const auto name = arguments.rest();
    session.ask<BuddyDetails>(requests::buddy_details(name), [&session, name](const BuddyDetails* details) {
        if (details == nullptr) {
            session.show(Kind::News, "There are no details of " + name);
            return;
        }
        const auto show = [&](const std::string& what, const std::string& value) {
            if (!value.empty()) {
                session.show(Kind::News, what + ": " + value);
            }
        };
        show("Name", details->first_name + " " + details->last_name);
        show("Mail", details->email);
        show("Client", details->client_version);
        show("Group", details->group);
        show("Comment", details->comment);
    });
}

void who(Session& session, Arguments /*arguments*/)
{
    session.ask<ActiveUsers>(requests::active_users(), [&session](const ActiveUsers* list) {
        std::string names;
        for (const auto& user : list == nullptr ? std::vector<Presence>{} : list->users) {
            names += (names.empty() ? "" : ", ") + with_status(user.name, user.status);
        }
        session.show(Kind::News, names.empty() ? "Nobody is on line." : "On line: " + names);
    });
}

void set_status(Session& session, Arguments arguments)
{
    if (session.request(requests::set_status(arguments.rest()))) {
        session.show(Kind::News, "You are " + arguments.rest());
    }
}

void save_auto_reply(Session& session, bool on, const std::string& text)
{
    session.ask<AutoReplySaved>(
        requests::save_auto_reply(on, text), [&session, on](const AutoReplySaved* saved) {
            const bool done = saved != nullptr && saved->saved;
            session.show(done ? Kind::News : Kind::Trouble,
                !done    ? "The automatic reply was not changed."
                    : on ? "The automatic reply is on."
                         : "The automatic reply is off.");
        });
}

void auto_reply(Session& session, Arguments arguments)
{
    const auto what = arguments.word();
    if (what.empty()) {
        session.ask<AutoReplyState>(requests::check_auto_reply(), [&session](const AutoReplyState* state) {
            session.show(Kind::News,
                state != nullptr && state->enabled ? "The automatic reply is on: " + state->message
                                                   : "The automatic reply is off.");
        });
    } else if (what == "off") {
        save_auto_reply(session, false, {});
    } else if (what == "on" && !arguments.rest().empty()) {
        save_auto_reply(session, true, arguments.rest());
    } else {
        session.show(Kind::Trouble, "Write /autoreply on TEXT or /autoreply off");
    }
}

void show_expiry(Session& session)
{
    if (const auto own = session.expiry()) {
        session.show(Kind::News, "Your messages expire after " + std::to_string(own->count()) + " minutes.");
    } else {
        const auto rule = session.server_expiry();
        session.show(Kind::News,
            "The server keeps your messages "
                + (rule ? "for " + std::to_string(*rule) + " minutes." : std::string("by its own rule.")));
    }
}

void expire(Session& session, Arguments arguments)
{
    const auto what = arguments.word();
    const auto minutes = number_in(what);
    if (!what.empty() && !minutes && what != "off") {
        session.show(Kind::Trouble, "Write /expire MINUTES or /expire off");
        return;
    }
    if (!what.empty()) {
        session.set_expiry(minutes ? std::optional(std::chrono::minutes(*minutes)) : std::nullopt);
    }
    show_expiry(session);
}

void send_file(Session& session, Arguments arguments)
{
    const auto to = arguments.word();
    const auto file = arguments.rest();
    if (file.empty()) {
        session.show(Kind::Trouble, "Write /send NAME FILE");
    } else if (session.files() != nullptr) {
        session.files()->send(to, file);
    }
}

/// The number of a transfer at the beginning of what was typed; taken out of it.
std::optional<int> number_at_start(Arguments& arguments)
{
    auto rest = arguments;
    const auto number = number_in(rest.word());
    arguments = number ? rest : arguments;
    return number;
}

void accept_file(Session& session, Arguments arguments)
{
    const auto number = number_at_start(arguments);
    if (session.files() != nullptr) {
        session.files()->accept(number, arguments.rest());
    }
}

void reject_file(Session& session, Arguments arguments)
{
    if (session.files() != nullptr) {
        session.files()->reject(number_at_start(arguments));
    }
}

void cancel_file(Session& session, Arguments arguments)
{
    if (session.files() != nullptr) {
        session.files()->cancel(number_at_start(arguments));
    }
}

void list_files(Session& session, Arguments /*arguments*/)
{
    if (session.files() != nullptr) {
        session.files()->list();
    }
}

void history(Session& session, Arguments arguments)
{
    constexpr int kUsual = 20;
    session.show_history(static_cast<std::size_t>(number_in(arguments.word()).value_or(kUsual)));
}

void connect(Session& session, Arguments /*arguments*/)
{
    session.reconnect();
}

std::string usage(const Command& command)
{
    return "/" + std::string(command.name) + (command.parameters.empty() ? "" : " ")
        + std::string(command.parameters);
}

void help(Session& session, Arguments /*arguments*/)
{
    constexpr std::size_t kWidth = 26;
    for (const auto& command : command_table()) {
        auto text = usage(command);
        text.append(text.size() < kWidth ? kWidth - text.size() : 1, ' ');
        session.show(Kind::News, text + std::string(command.help));
    }
    session.show(Kind::News,
        "What does not begin with / goes to whom the prompt names. // begins a text with a slash.");
}

void quit(Session& session, Arguments /*arguments*/)
{
    session.quit();
}

/// Whether the command cannot do without what follows it.
bool needs_arguments(const Command& command)
{
    return !command.parameters.empty() && !command.parameters.starts_with("[");
}

} // namespace

std::string Arguments::word()
{
    text_ = qz::trim(text_);
    const bool quoted = text_.starts_with("\"") && text_.find('"', 1) != std::string_view::npos;
    const auto begin = quoted ? std::size_t{1} : 0;
    const auto end = text_.find(quoted ? '"' : ' ', begin);
    const auto length = end == std::string_view::npos ? text_.size() : end;
    std::string word(text_.substr(begin, length - begin));
    text_.remove_prefix((std::min)(text_.size(), length + (quoted ? 1 : 0)));
    return word;
}

std::string Arguments::rest() const
{
    return std::string(qz::trim(text_));
}

const std::vector<Command>& command_table()
{
    static const std::vector<Command> kCommands{
        {"msg", "NAME [TEXT]", "write to somebody; then all that you type goes there", write_to},
        {"join", "ROOM", "enter a room and write there", join},
        {"leave", "[ROOM]", "leave a room", leave},
        {"rooms", "", "all rooms", list_rooms},
        {"guests", "[ROOM]", "who is in a room", list_guests},
        {"create", "ROOM", "make a room of your own", create_room},
        {"delete", "ROOM", "delete a room of your own", delete_room},
        {"who", "", "everybody on line", who},
        {"buddies", "", "your buddies and their status", list_buddies},
        {"add", "NAME [GROUP]", "add a buddy", add_buddy},
        {"remove", "NAME", "remove a buddy", remove_buddy},
        {"find", "TEXT", "find people by a part of their name", find},
        {"whereis", "NAME", "the rooms that somebody is in", where_is},
        {"details", "NAME", "what is known of a buddy", show_details},
        {"status", "TEXT", "your status: online, or any words", set_status},
        {"autoreply", "[on TEXT | off]", "answer every message by itself", auto_reply},
        {"expire", "[MINUTES | off]", "how long your next messages are kept for those off line", expire},
        {"send", "NAME FILE", "offer a file to somebody who is on line", send_file},
        {"accept", "[NUMBER] [FOLDER]", "take a file that somebody offers", accept_file},
        {"reject", "[NUMBER]", "do not take it", reject_file},
        {"cancel", "[NUMBER]", "end the transfer of a file", cancel_file},
        {"files", "", "the files on their way", list_files},
        {"history", "[LINES]", "what was said since you logged on", history},
        {"connect", "", "log on again", connect},
        {"help", "", "this list", help},
        {"quit", "", "leave; so does Ctrl-D", quit},
    };
    return kCommands;
}

void run_command(Session& session, std::string_view line)
{
    Arguments arguments(line);
    const auto name = arguments.word();
    const auto& table = command_table();
    const auto command =
        std::find_if(table.begin(), table.end(), [&](const Command& each) { return each.name == name; });
    if (command == table.end()) {
        session.show(Kind::Trouble, "There is no command /" + name + ". /help lists them.");
    } else if (needs_arguments(*command) && arguments.rest().empty()) {
        session.show(Kind::Trouble, "Write " + usage(*command) + ": " + std::string(command->help));
    } else {
        command->run(session, arguments);
    }
}

} // namespace velto
