#include "protocol/Presence.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"
#include "protocol/Values.h"

#include <unordered_set>

namespace qz::protocol {

using helpers::protocol_keywords;

Presence::Presence(net::ConnectionTable& connections, const store::Directory& directory, net::Sender& sender,
    net::OnLineCount& count, PresenceListener& listener, Journal& journal)
    : connections_(connections), directory_(directory), sender_(sender), count_(count), listener_(listener),
      journal_(journal)
{
}

void Presence::Update_Status(
    const std::string& status, const std::string& user, std::int16_t socket, const std::string& remote_ip)
{
    guarded(journal_, "Update_Status", remote_ip, [&] {
        for (auto* running : announcements_) {
            running->overtaken = running->overtaken || running->user == user;
        }
        connections_.set_status_text(user, status);
        const auto sockets = watching_sockets(user, socket);
        Announcement announcement{user};
        announcements_.push_back(&announcement);
        for (const auto watching : sockets) {
            if (announcement.overtaken) {
                break; // everybody knows the newer status by now; this one would stand in its place
            }
            Send_BuddyStatus(watching, user, status);
        }
        announcements_.pop_back();
        journal_.Log("New status for " + user + ": " + status, user, remote_ip);
        listener_.presence_changed();
    });
}

void Presence::Send_BuddyStatus(std::int16_t socket, const std::string& user, const std::string& status)
{
    guarded(journal_, "Send_BuddyStatus", no_address, [&] {
        sender_.SendData(socket, protocol_keywords().StatusChange,
            "screenname=" + without_blanks(user) + " status=" + status);
    });
}

std::string Presence::get_UserStatus(const std::string& user) const
{
    const auto* record = user.empty() ? nullptr : connections_.first_named(user);
    return record == nullptr ? protocol_keywords().StatusOffLine : record->StatusText;
}

void Presence::RefreshActiveUsersMenu()
{
    guarded(journal_, "RefreshActiveUsersMenu", no_address,
        [&] { count_.ReportOnLineUsers(connections_.count_on_line()); });
}

/// The sockets of all owners of lists that hold the user, each owner once. Taken together before the first is
/// told: sending may yield, and the directory and the table may change then.
std::vector<std::int16_t> Presence::watching_sockets(const std::string& user, std::int16_t own_socket) const
{
    std::vector<std::int16_t> sockets;
    std::unordered_set<std::string_view> owners;
    for (const auto* entry : directory_.entries_listing(user)) {
        const auto& owner = entry->UserName;
        if (!owners.insert(owner).second) {
            continue;
        }
        for (const auto number : connections_.named(owner)) {
            const auto socket = connections_.records()[static_cast<std::size_t>(number)].Socket;
            if (socket != own_socket) {
                sockets.push_back(socket);
            }
        }
    }
    return sockets;
}

} // namespace qz::protocol
