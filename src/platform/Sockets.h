// The listening socket and the numbered pool of client sockets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qz::platform {

class ServerSocketEvents {
public:
    /// Somebody wants to connect. The request is dropped unless the client sockets accept it during this
    /// call.
    virtual void connection_requested(std::int32_t request) = 0;

protected:
    ~ServerSocketEvents() = default;
};

/// Errors of its operations are EngineError with the operating system's text.
class ServerSocket {
public:
    ServerSocket() = default;
    ServerSocket(const ServerSocket&) = delete;
    ServerSocket& operator=(const ServerSocket&) = delete;
    virtual ~ServerSocket() = default;

    virtual void close() = 0;
    /// Takes effect with the next listen. Port 0 lets the system choose one.
    virtual void set_local_port(std::uint16_t port) = 0;
    /// The port that is listened on, else the one set last.
    virtual std::uint16_t local_port() const = 0;
    /// @param address  dotted IPv4 or IPv6 address; empty for all.
    virtual void set_local_address(const std::string& address) = 0;
    virtual void listen() = 0;
    /// The address under which this machine is reached: its first IPv4 address that is not loopback, else
    /// 127.0.0.1.
    virtual std::string local_address() const = 0;
};

class ClientSocketEvents {
public:
    /// One unit of the protocol has arrived: well-formed UTF-8, beginning with a frame or an envelope marker.
    virtual void data_arrived(std::int16_t socket, const std::string& unit) = 0;
    /// The peer closed, or the component gave the connection up. Not raised for close().
    virtual void closed(std::int16_t socket) = 0;

protected:
    ~ClientSocketEvents() = default;
};

/// State codes of a socket.
inline constexpr std::int16_t kSocketClosed = 0;
inline constexpr std::int16_t kSocketReserved = 1; // number 0 only, which means "nobody"
inline constexpr std::int16_t kSocketClosing = 8;  // pending output is being flushed
inline constexpr std::int16_t kSocketConnected = 7;

/// Sockets are numbered from 0 to count() - 1.
class ClientSockets {
public:
    ClientSockets() = default;
    ClientSockets(const ClientSockets&) = delete;
    ClientSockets& operator=(const ClientSockets&) = delete;
    virtual ~ClientSockets() = default;

    /// Adds `count` sockets to the pool. Numbers are 16 bits wide: the pool never grows past 32,767.
    /// @param preserve  kept for the interface; sockets in use are never dropped either way.
    virtual void load(std::int16_t count, bool preserve) = 0;
    virtual std::int16_t count() const = 0;
    /// kSocketClosed for a number outside the pool.
    virtual std::int16_t state(std::int16_t socket) const = 0;
    /// Address of the peer of a request that was not accepted yet; empty when there is no such request.
    virtual std::string request_address(std::int32_t request) const = 0;
    /// Binds a request to a closed socket of the pool.
    virtual void accept(std::int16_t socket, std::int32_t request) = 0;
    /// Address of the peer; still readable after the close until the socket is taken again.
    virtual std::string remote_address(std::int16_t socket) const = 0;
    virtual std::string local_address() const = 0;
    /// Queues text; it leaves at the end of the turn in one write with the turn's other texts for the socket.
    virtual void send(std::int16_t socket, std::string_view text) = 0;
    /// Bytes that the peer has not taken yet, those of this turn included; 0 for a socket without a
    /// connection.
    virtual std::size_t unsent(std::int16_t socket) const = 0;
    /// While it is false, no unit of the socket arrives: what the peer has sent waits, in its order, and in
    /// the end the peer waits too. Its end is noticed late. A new connection is read.
    virtual void set_reading(std::int16_t socket, bool reading) = 0;
    /// Flushes what is pending, within a time limit, and closes.
    virtual void close(std::int16_t socket) = 0;
    /// Breaks each connection from which something came or to which something was sent since the last turn
    /// ended. What was sent and is not written is dropped; the closed event follows as for any connection
    /// that breaks.
    virtual void drop_turn() = 0;
};

} // namespace qz::platform
