#include "net/Registration.h"

namespace qz::net {

Registration::Registration(ConnectionTable& connections, Policing& policing, RevokedSessions& sessions,
    const SocketPool& pool, const Clock& clock)
    : connections_(connections), policing_(policing), sessions_(sessions), pool_(pool), clock_(clock)
{
}

bool Registration::bind(
    const std::string& user, const std::string& session_id, std::int16_t socket, const std::string& remote_ip)
{
    if (connections_.UserIsOnline(user)) {
        policing_.CloseAllPreviousConnections(user, remote_ip);
    }
    if (!pool_.is_connected(socket)) {
        return false;
    }
    connections_.fill(user, session_id, socket, remote_ip, clock_.now());
    sessions_.logged_on(user, socket);
    return true;
}

bool Registration::is_bound(const std::string& user, std::int16_t socket) const
{
    const auto* record = connections_.last_on(socket);
    return record != nullptr && record->UserName == user;
}

} // namespace qz::net
