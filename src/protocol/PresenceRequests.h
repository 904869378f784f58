// The requests about presence: lists, a new status, the administrator's name, the client's version.
#pragma once

#include "base/Journal.h"
#include "config/Deployment.h"
#include "config/Settings.h"
#include "helpers/MessageParser.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"
#include "notify/VersionNotices.h"
#include "protocol/Presence.h"
#include "protocol/PresenceLists.h"
#include "protocol/Request.h"
#include "store/Accounts.h"

namespace qz::protocol {

class PresenceRequests {
public:
    /// What the requests are answered from.
    struct Sources {
        Presence& presence;
        PresenceLists& lists;
        store::Accounts& accounts;
        notify::VersionNotices& version_notices;
        const config::Settings& settings;
        const config::Deployment& deployment;
    };
    PresenceRequests(Sources sources, const net::ConnectionTable& connections,
        const helpers::MessageParser& parser, net::Sender& sender, Journal& journal);

    void Request_OnLineBuddies(const Request& request);
    void Request_RoomList(const Request& request);
    void Request_WhereIsBuddy(const Request& request);
    void Request_FindBuddy(const Request& request);
    void Request_Status(const Request& request);
    void Request_AdminScreenName(const Request& request);
    void Request_ClientVersion(const Request& request);
    void Request_LastVersion(const Request& request);
    void GetAllBuddies(const Request& request);
    void GetActiveRightNow(const Request& request);

private:
    /// A status as it is recorded: with the safeguard StatusLength a visible line of at most so many
    /// characters.
    std::string status_in(const Request& request) const;
    /// Whoever the request names, and whoever is on line on its socket.
    static PresenceLists::Asker named_in(const Request& request);
    PresenceLists::Asker behind(const Request& request) const;

    Sources sources_;
    const net::ConnectionTable& connections_;
    const helpers::MessageParser& parser_;
    net::Sender& sender_;
    Journal& journal_;
};

} // namespace qz::protocol
