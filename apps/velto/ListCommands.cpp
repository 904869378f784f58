#include "ListCommands.h"

#include "Clean.h"
#include "EventJson.h"
#include "Line.h"
#include "ScriptClient.h"

#include <iostream>

namespace velto {

namespace {

using namespace qz::client;
using Json = nlohmann::ordered_json;

/// Asks for a list and waits for it. The server answers in order and sends no empty list, so what has not
/// come before the answer to a later question is empty.
template <typename List> List ask(const LogOnOptions& log_on, const Request& request)
{
    ScriptClient client(log_on, ScriptClient::Messages::Left);
    client.log_on();
    client.settle(); // the lists that the server sends by itself have come
    List list;
    bool cut_off = false;
    client.on_incoming = [&](const Incoming& incoming) {
        if (const auto* const answer = std::get_if<List>(&incoming)) {
            list = *answer;
        }
        cut_off = cut_off || std::holds_alternative<CutOff>(incoming);
        if (const auto* const message = std::get_if<Message>(&incoming)) {
            std::cerr << "velto: a message came meanwhile from " << clean(message->sender) << ": "
                      << clean(message->text) << "\n";
        }
    };
    client.core().send(request);
    if (!client.settle()) {
        throw CommandError(Exit::Failed, "the connection ended before the server answered");
    }
    if (cut_off) {
        throw CommandError(Exit::Failed, "the list is longer than the server can send");
    }
    return list;
}

std::string column(const std::string& text, std::size_t width)
{
    return in_column(clean(text), width);
}

} // namespace

Exit run_who(const LogOnOptions& log_on, bool json)
{
    const auto list = ask<ActiveUsers>(log_on, requests::active_users());
    auto all = Json::array();
    for (const auto& user : list.users) {
        if (json) {
            all.push_back({{"name", user.name}, {"status", user.status}});
        } else {
            std::cout << column(user.name, 20) << clean(user.status) << "\n";
        }
    }
    if (json) {
        std::cout << json_line(all) << "\n";
    }
    return Exit::Done;
}

Exit run_rooms(const LogOnOptions& log_on, bool json)
{
    const auto list = ask<RoomList>(log_on, requests::room_list());
    auto all = Json::array();
    for (const auto& room : list.rooms) {
        if (json) {
            all.push_back({{"name", room.name}, {"owner", room.owner}, {"guests", room.guests}});
        } else {
            std::cout << column(room_name(room.name), 24) << column(room.owner, 20) << room.guests << "\n";
        }
    }
    if (json) {
        std::cout << json_line(all) << "\n";
    }
    return Exit::Done;
}

} // namespace velto
