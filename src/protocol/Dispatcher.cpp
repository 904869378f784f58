#include "protocol/Dispatcher.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <array>

namespace qz::protocol {

namespace {

using helpers::ProtocolKeywords;
using Keyword = const std::string ProtocolKeywords::*;

struct Command {
    Keyword keyword;
    Keyword parameters_after; // the keyword with which the parameters are taken
    Gate gate = Gate::None;
    void (Handlers::*handler)(const Request&) = nullptr; // none: the server does not serve this request
};

// The order is the order of comparison.
const std::array<Command, 23> kCommands{{
    {&ProtocolKeywords::TypingNotice, &ProtocolKeywords::TypingNotice, Gate::None, &Handlers::typing},
    {&ProtocolKeywords::InstantMessage, &ProtocolKeywords::InstantMessage, Gate::None,
        &Handlers::instant_message},
    {&ProtocolKeywords::MessageReceipt, &ProtocolKeywords::MessageReceipt, Gate::None,
        &Handlers::message_receipt},
    {&ProtocolKeywords::LogOn, &ProtocolKeywords::LogOn, Gate::None, &Handlers::log_on},
    {&ProtocolKeywords::LastVersionRequest, &ProtocolKeywords::LastVersionRequest, Gate::None,
        &Handlers::last_version},
    {&ProtocolKeywords::WhereIsBuddy, &ProtocolKeywords::WhereIsBuddy, Gate::None, &Handlers::where_is_buddy},
    {&ProtocolKeywords::ActiveUsers, &ProtocolKeywords::ActiveUsers, Gate::None, &Handlers::active_users},
    {&ProtocolKeywords::OnLineBuddies, &ProtocolKeywords::OnLineBuddies, Gate::None,
        &Handlers::on_line_buddies},
    // Clients count on the parameters being taken with the other keyword: the command stays in front of them.
    {&ProtocolKeywords::RoomList, &ProtocolKeywords::OnLineBuddies, Gate::None, &Handlers::room_list},
    {&ProtocolKeywords::AllBuddies, &ProtocolKeywords::AllBuddies, Gate::None, &Handlers::all_buddies},
    {&ProtocolKeywords::FindBuddy, &ProtocolKeywords::FindBuddy, Gate::None, &Handlers::find_buddy},
    {&ProtocolKeywords::StatusChange, &ProtocolKeywords::StatusChange, Gate::None, &Handlers::status_change},
    {&ProtocolKeywords::AddBuddy, &ProtocolKeywords::AddBuddy, Gate::None, &Handlers::add_buddy},
    {&ProtocolKeywords::DeleteBuddy, &ProtocolKeywords::DeleteBuddy, Gate::None, &Handlers::delete_buddy},
    {&ProtocolKeywords::ClientVersionReport, &ProtocolKeywords::ClientVersionReport, Gate::None,
        &Handlers::client_version},
    {&ProtocolKeywords::AutoReply, &ProtocolKeywords::AutoReply, Gate::None, &Handlers::auto_reply},
    {&ProtocolKeywords::BuddyDetails, &ProtocolKeywords::BuddyDetails, Gate::None, &Handlers::buddy_details},
    {&ProtocolKeywords::BuddyKey, &ProtocolKeywords::BuddyKey, Gate::None, &Handlers::buddy_key},
    {&ProtocolKeywords::Room, &ProtocolKeywords::Room, Gate::None, &Handlers::room},
    {&ProtocolKeywords::FileTransfer, &ProtocolKeywords::FileTransfer, Gate::FileTransfer,
        &Handlers::file_transfer},
    {&ProtocolKeywords::ScreenTransfer, &ProtocolKeywords::ScreenTransfer, Gate::ScreenTransfer,
        &Handlers::screen_transfer},
    {&ProtocolKeywords::AdminScreenName, &ProtocolKeywords::AdminScreenName, Gate::None,
        &Handlers::admin_screen_name},
    {&ProtocolKeywords::Echo, &ProtocolKeywords::Echo, Gate::None, &Handlers::echo},
}};

} // namespace

Dispatcher::Dispatcher(Handlers& handlers, const helpers::MessageParser& parser, const net::SocketPool& pool,
    net::Sender& sender, config::Settings& settings, Journal& journal)
    : reader_(parser, journal), handlers_(handlers), parser_(parser), pool_(pool), sender_(sender),
      settings_(settings), journal_(journal)
{
}

void Dispatcher::HandleIncoming(
    std::int16_t socket, const std::string& message, double number, const std::string& first_word)
{
    std::string address;
    guarded(journal_, "HandleIncoming", address, [&] {
        const auto& keywords = helpers::protocol_keywords();
        const auto word = parser_.field(message, 1);
        const auto command = std::find_if(kCommands.begin(), kCommands.end(),
            [&](const Command& candidate) { return keywords.*candidate.keyword == word; });
        if (command == kCommands.end()) {
            return;
        }
        address = pool_.get_RemoteAddress(socket);
        if (const auto reason = refusal(command->gate)) {
            sender_.SendData(socket, keywords.Notice, *reason);
        } else if (command->handler != nullptr) {
            (handlers_.*command->handler)(
                {socket, parser_.text_after_keyword(message, keywords.*command->parameters_after), address,
                    number, first_word});
        }
    });
}

/// Why the policy forbids a request; nothing when it does not.
std::optional<std::string> Dispatcher::refusal(Gate gate)
{
    const auto contact = [&] {
        return settings_.get_AdminScreenName() + " for support";
    };
    if (gate == Gate::FileTransfer && !settings_.get_AllowFileTransfer()) {
        return "File Transfer not allowed by internal policy. Please contact " + contact();
    }
    if (gate == Gate::ScreenTransfer && !settings_.get_AllowSnapShot()) {
        return "ScreenShot not allowed by internal policy. Please contact " + contact();
    }
    return std::nullopt;
}

} // namespace qz::protocol
