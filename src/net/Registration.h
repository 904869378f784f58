// Binds a logged-on user to a socket.
#pragma once

#include "base/Clock.h"
#include "net/ConnectionTable.h"
#include "net/Policing.h"
#include "net/RevokedSessions.h"
#include "net/SocketPool.h"

#include <cstdint>
#include <string>

namespace qz::net {

class Registration {
public:
    Registration(ConnectionTable& connections, Policing& policing, RevokedSessions& sessions,
        const SocketPool& pool, const Clock& clock);

    /// Closes the earlier connections of the name, then fills a connection record.
    /// @return false when the socket is not connected any more: it was one of the earlier ones itself, or its
    /// client went away meanwhile. No record is filled then.
    bool bind(const std::string& user, const std::string& session_id, std::int16_t socket,
        const std::string& remote_ip);
    /// The client is seen at the loopback address, so that it may take that for its own.
    bool is_on_this_machine(std::int16_t socket) const { return pool_.is_on_this_machine(socket); }
    /// A record on the socket carries the name.
    bool is_bound(const std::string& user, std::int16_t socket) const;

private:
    ConnectionTable& connections_;
    Policing& policing_;
    RevokedSessions& sessions_;
    const SocketPool& pool_;
    const Clock& clock_;
};

} // namespace qz::net
