// The numbered pool of client sockets: its size, connection requests, and what is known of a number.
#pragma once

#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "net/ConnectionTable.h"
#include "net/NetEvents.h"
#include "net/Sender.h"
#include "net/SocketNumbers.h"
#include "platform/Sockets.h"

#include <cstdint>
#include <string>

namespace qz::net {

class SocketPool {
public:
    SocketPool(const ConnectionTable& connections, SocketNumbers& numbers, Sender& sender,
        helpers::MessageParser& parser, TrafficEvents& events, Journal& journal);

    /// The component to work with: a new one at every start.
    void use(platform::ClientSockets* sockets);

    /// Adds sockets to the pool; logged before and after. Errors are ignored.
    void LoadSockets(std::int16_t number_of_sockets_to_load, bool to_preserve);
    std::int16_t get_SocketsCount() const;

    /// A connection request: gives it the first socket that is closed and has rested for more than 60
    /// seconds, or grows the pool; accepts, and offers a session id. Where the pool cannot grow, the
    /// safeguard ReuseRestingSockets takes the one that was closed longest ago.
    /// @return the socket; 0 when that failed.
    std::int16_t connection_requested(std::int32_t request);
    /// A socket was used just now: it arrived, spoke or closed. A closed socket rests from here on.
    void touch(std::int16_t socket) { numbers_.touch(socket); }

    /// The component's state of a socket; closed while there are none.
    std::int16_t state(std::int16_t socket) const;
    bool SocketFree(std::int16_t socket) const;
    bool is_connected(std::int16_t socket) const;
    std::int64_t count_connected() const;
    /// Bytes that the peer has not taken yet.
    std::size_t unsent(std::int16_t socket) const;
    bool SessionIDFree(const std::string& session_id) const
    {
        return !connections_.is_session_id_used(session_id);
    }
    /// The peer's address; the server's own in place of HostAddress, for a client on the same machine.
    std::string get_RemoteAddress(std::int16_t socket) const;
    /// The peer is seen at HostAddress.
    bool is_on_this_machine(std::int16_t socket) const;
    /// The server's own address as a deployment states it; empty for the one that the machine finds.
    void set_own_address(const std::string& address) { own_address_ = address; }

private:
    std::int16_t take_socket();
    std::int16_t grow();
    std::string fresh_session_id();

    const ConnectionTable& connections_;
    SocketNumbers& numbers_;
    Sender& sender_;
    helpers::MessageParser& parser_;
    TrafficEvents& events_;
    Journal& journal_;
    platform::ClientSockets* sockets_ = nullptr;
    std::string own_address_;
};

} // namespace qz::net
