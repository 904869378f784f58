// Who is on line with which status, and telling it to those whose buddy lists hold the user.
#pragma once

#include "base/Journal.h"
#include "net/ConnectionTable.h"
#include "net/NetEvents.h"
#include "net/Sender.h"
#include "store/Directory.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qz::protocol {

/// Hears that somebody's status is another one now.
class PresenceListener {
public:
    /// Called at the end of each change of status. Does not throw.
    virtual void presence_changed() = 0;

protected:
    ~PresenceListener() = default; // never deleted through this type
};

class Presence final : public net::ActiveUsersMenu {
public:
    Presence(net::ConnectionTable& connections, const store::Directory& directory, net::Sender& sender,
        net::OnLineCount& count, PresenceListener& listener, Journal& journal);

    /// Records a new status with the user's connections and tells it to every user whose list holds this one
    /// and who is on line on another socket.
    /// @param socket  where the change came from.
    void Update_Status(const std::string& status, const std::string& user, std::int16_t socket,
        const std::string& remote_ip);
    void Send_BuddyStatus(std::int16_t socket, const std::string& user, const std::string& status);
    /// The status text last recorded for a name that is on line, else StatusOffLine.
    std::string get_UserStatus(const std::string& user) const;
    void RefreshActiveUsersMenu() override;

private:
    /// A status on its way to the buddies.
    struct Announcement {
        std::string_view user;
        bool overtaken = false; // the same user has announced a newer one meanwhile
    };
    std::vector<std::int16_t> watching_sockets(const std::string& user, std::int16_t own_socket) const;

    net::ConnectionTable& connections_;
    const store::Directory& directory_;
    net::Sender& sender_;
    net::OnLineCount& count_;
    PresenceListener& listener_;
    Journal& journal_;
    std::vector<Announcement*> announcements_; // innermost last; sending may yield, so there can be several
};

} // namespace qz::protocol
