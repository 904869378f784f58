// Connections that are ended on purpose: a name that logs on again or is on line twice, a user whom the host
// logs off, everybody.
#pragma once

#include "base/Journal.h"
#include "net/ConnectionTable.h"
#include "net/NetEvents.h"
#include "net/Sender.h"
#include "net/SocketCloser.h"
#include "store/Accounts.h"

#include <string>

namespace qz::net {

class Policing {
public:
    Policing(const ConnectionTable& connections, Sender& sender, SocketCloser& closer,
        store::Accounts& accounts, ActiveUsersMenu& menu, Journal& journal);

    /// Closes every on-line connection of the name, after telling it why.
    /// @param remote_ip  address of the connection for which the others make room.
    void CloseAllPreviousConnections(const std::string& screen_name, const std::string& remote_ip);
    /// Closes every on-line connection of the name, the first one included: the user must log on again.
    void CloseAllMultiplyConnections(const std::string& screen_name);
    /// Calls CloseAllMultiplyConnections for each name that is on line more than once. Run on every tick.
    void UserIsOnlineHowManyTimes();
    /// What the command queued by LogOffUser does. Nothing for an empty name; why it did nothing for others
    /// is logged.
    void log_off(const std::string& screen_name);
    void CloseAllConnections();

private:
    template <typename Action> void for_each_named(const std::string& user_name, Action&& action);

    const ConnectionTable& connections_;
    Sender& sender_;
    SocketCloser& closer_;
    store::Accounts& accounts_;
    ActiveUsersMenu& menu_;
    Journal& journal_;
};

} // namespace qz::net
