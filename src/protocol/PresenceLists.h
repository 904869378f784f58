// The lists that a client asks for: buddies, rooms, who is on line or where, users found by a text.
#pragma once

#include "base/Journal.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"
#include "protocol/Presence.h"
#include "protocol/UserSearch.h"
#include "protocol/Values.h"
#include "store/Directory.h"
#include "store/RoomMembers.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qz::protocol {

/// Each list goes to one socket under the keyword of the request that asks for it, and its line into the log.
/// An empty list is neither sent nor logged.
class PresenceLists {
public:
    /// Who asked, and where the answer goes.
    struct Asker {
        std::string user;
        std::int16_t socket = 0;
        std::string remote_ip;
    };

    PresenceLists(const net::ConnectionTable& connections, store::Directory& directory,
        const store::RoomMembers& members, const Presence& presence, net::Sender& sender, Journal& journal);

    /// The user's buddies that are on line: name, status.
    void get_OnLine_Buddies(const Asker& asker);
    /// All rooms: room, owner, number of guests.
    void get_Rooms(const Asker& asker);
    /// All of the user's buddies: name, group, status.
    void GetAllBuddies(const Asker& asker);
    /// Every name on line once, in table order: name, status.
    void GetActiveRightNow(const Asker& asker);
    /// The rooms that a buddy is in.
    void GetWhereIAm(const Asker& asker, const std::string& buddy);
    /// Enabled accounts whose screen, first or last name holds the text, in any letter case: the three names.
    /// An empty text finds nothing.
    void SearchBuddy(const Asker& asker, const std::string& text);

private:
    void send(
        const Asker& asker, std::string_view keyword, const ListText& list, const std::string& log_line);

    const net::ConnectionTable& connections_;
    store::Directory& directory_;
    const store::RoomMembers& members_;
    const Presence& presence_;
    net::Sender& sender_;
    Journal& journal_;
    UserSearch search_;
};

} // namespace qz::protocol
