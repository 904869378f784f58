#include "protocol/Dispatcher.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"
#include "protocol/Values.h"

#include <algorithm>
#include <array>

namespace qz::protocol {

namespace {

using helpers::ProtocolKeywords;
using Keyword = const std::string ProtocolKeywords::*;

// The keys by which a command names whoever acts.
constexpr const char* kSender = "screennamefrom";
constexpr const char* kOwner = "screenname";
constexpr const char* kNobody = nullptr; // it acts for whoever is logged on, or proves who it is by itself

struct Command {
    Keyword keyword;
    Keyword parameters_after; // the keyword with which the parameters are taken
    const char* names = kNobody;
    Gate gate = Gate::None;
    void (Handlers::*handler)(const Request&) = nullptr; // none: the server does not serve this request
};

// The order is the order of comparison.
const std::array<Command, 23> kCommands{{
    {&ProtocolKeywords::TypingNotice, &ProtocolKeywords::TypingNotice, kSender, Gate::None,
        &Handlers::typing},
    {&ProtocolKeywords::InstantMessage, &ProtocolKeywords::InstantMessage, kSender, Gate::None,
        &Handlers::instant_message},
    {&ProtocolKeywords::MessageReceipt, &ProtocolKeywords::MessageReceipt, kNobody, Gate::None,
        &Handlers::message_receipt},
    {&ProtocolKeywords::LogOn, &ProtocolKeywords::LogOn, kNobody, Gate::None, &Handlers::log_on},
    {&ProtocolKeywords::LastVersionRequest, &ProtocolKeywords::LastVersionRequest, kNobody, Gate::None,
        &Handlers::last_version},
    {&ProtocolKeywords::WhereIsBuddy, &ProtocolKeywords::WhereIsBuddy, kNobody, Gate::None,
        &Handlers::where_is_buddy},
    {&ProtocolKeywords::ActiveUsers, &ProtocolKeywords::ActiveUsers, kNobody, Gate::None,
        &Handlers::active_users},
    {&ProtocolKeywords::OnLineBuddies, &ProtocolKeywords::OnLineBuddies, kOwner, Gate::None,
        &Handlers::on_line_buddies},
    // Clients count on the parameters being taken with the other keyword: the command stays in front of them.
    {&ProtocolKeywords::RoomList, &ProtocolKeywords::OnLineBuddies, kOwner, Gate::None, &Handlers::room_list},
    {&ProtocolKeywords::AllBuddies, &ProtocolKeywords::AllBuddies, kNobody, Gate::None,
        &Handlers::all_buddies},
    {&ProtocolKeywords::FindBuddy, &ProtocolKeywords::FindBuddy, kNobody, Gate::None, &Handlers::find_buddy},
    {&ProtocolKeywords::StatusChange, &ProtocolKeywords::StatusChange, kOwner, Gate::None,
        &Handlers::status_change},
    {&ProtocolKeywords::AddBuddy, &ProtocolKeywords::AddBuddy, kOwner, Gate::None, &Handlers::add_buddy},
    {&ProtocolKeywords::DeleteBuddy, &ProtocolKeywords::DeleteBuddy, kOwner, Gate::None,
        &Handlers::delete_buddy},
    {&ProtocolKeywords::ClientVersionReport, &ProtocolKeywords::ClientVersionReport, kOwner, Gate::None,
        &Handlers::client_version},
    {&ProtocolKeywords::AutoReply, &ProtocolKeywords::AutoReply, kOwner, Gate::None, &Handlers::auto_reply},
    {&ProtocolKeywords::BuddyDetails, &ProtocolKeywords::BuddyDetails, kOwner, Gate::None,
        &Handlers::buddy_details},
    {&ProtocolKeywords::BuddyKey, &ProtocolKeywords::BuddyKey, kOwner, Gate::None, &Handlers::buddy_key},
    {&ProtocolKeywords::Room, &ProtocolKeywords::Room, kOwner, Gate::None, &Handlers::room},
    {&ProtocolKeywords::FileTransfer, &ProtocolKeywords::FileTransfer, kSender, Gate::FileTransfer,
        &Handlers::file_transfer},
    {&ProtocolKeywords::ScreenTransfer, &ProtocolKeywords::ScreenTransfer, kSender, Gate::ScreenTransfer,
        &Handlers::screen_transfer},
    {&ProtocolKeywords::AdminScreenName, &ProtocolKeywords::AdminScreenName, kOwner, Gate::None,
        &Handlers::admin_screen_name},
    {&ProtocolKeywords::Echo, &ProtocolKeywords::Echo, kNobody, Gate::None, &Handlers::echo},
}};

} // namespace

Dispatcher::Dispatcher(Handlers& handlers, const helpers::MessageParser& parser, const net::SocketPool& pool,
    net::Sender& sender, Rules rules, Journal& journal)
    : reader_(parser), handlers_(handlers), parser_(parser), pool_(pool), sender_(sender), rules_(rules),
      journal_(journal)
{
}

std::vector<std::string> Dispatcher::commands()
{
    std::vector<std::string> words;
    for (const auto& command : kCommands) {
        words.push_back(helpers::protocol_keywords().*command.keyword);
    }
    return words;
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
        Request request{socket, parser_.text_after_keyword(message, keywords.*command->parameters_after), {},
            address, number, first_word};
        std::optional<std::string> reason;
        if (command->names != kNobody) {
            request.user = screen_name(parser_, request.parameters, command->names);
            reason = rules_.senders.refusal(socket, request.user, word);
        }
        if (!reason) {
            reason = refusal(command->gate);
        }
        if (reason) {
            sender_.SendData(socket, keywords.Notice, *reason);
        } else if (command->handler != nullptr) {
            (handlers_.*command->handler)(request);
        }
    });
}

/// Why the policy forbids a request; nothing when it does not.
std::optional<std::string> Dispatcher::refusal(Gate gate)
{
    const auto contact = [&] {
        return rules_.policy.get_AdminScreenName() + " for support";
    };
    if (gate == Gate::FileTransfer && !rules_.policy.get_AllowFileTransfer()) {
        return "File Transfer not allowed by internal policy. Please contact " + contact();
    }
    if (gate == Gate::ScreenTransfer && !rules_.policy.get_AllowSnapShot()) {
        return "ScreenShot not allowed by internal policy. Please contact " + contact();
    }
    return std::nullopt;
}

} // namespace qz::protocol
