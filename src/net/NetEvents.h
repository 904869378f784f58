// What the net room tells upwards.
#pragma once

#include <cstdint>
#include <string>

namespace qz::net {

/// Heard by presence and rooms.
class ConnectionEvents {
public:
    /// A logged-on user's connection was released; its record is already free.
    /// Called once per release, on the loop thread, before SocketClosing returns.
    virtual void released(const std::string& user, const std::string& address, std::int16_t socket) = 0;
    /// A connection ended, whether somebody was logged on or not. Called before released.
    virtual void left(std::int16_t /*socket*/) { }
    /// The end of a connection was dealt with, whether somebody was logged on or not. Called last.
    virtual void close_finished() { }

protected:
    ~ConnectionEvents() = default; // listeners are never deleted through this type
};

/// Heard by presence.
class ActiveUsersMenu {
public:
    /// Refreshes the host's view of who is on line.
    virtual void RefreshActiveUsersMenu() = 0;

protected:
    ~ActiveUsersMenu() = default;
};

/// Heard by the host.
class OnLineCount {
public:
    /// Writes the count into the activity log and raises OnLineUsers. Does not throw.
    virtual void ReportOnLineUsers(std::int32_t count) = 0;

protected:
    ~OnLineCount() = default;
};

enum class Direction { Ingoing, Outgoing };

/// Heard by the host.
class TrafficEvents {
public:
    /// A message was accepted, or a chunk was handed to a socket.
    virtual void traffic(Direction direction) = 0;
    /// @param address  the peer's address, " on " and the socket number.
    virtual void new_connection_requested(const std::string& address) = 0;

protected:
    ~TrafficEvents() = default;
};

/// An envelope taken apart.
struct Envelope {
    std::string body; // from the first word on, without the client's own address
    double number = 0;
    std::string first_word;
    std::string rest;
    std::string my_ip; // the client's self-reported address
};

/// Heard by the protocol, which knows the grammar.
class IncomingMessages {
public:
    /// Takes an envelope apart.
    /// @throws EngineError for what is no envelope.
    virtual Envelope CheckMsgIncomingRules(const std::string& data) = 0;
    /// Carries out a message whose sender was checked.
    virtual void HandleIncoming(
        std::int16_t socket, const std::string& body, double number, const std::string& first_word) = 0;

protected:
    ~IncomingMessages() = default;
};

} // namespace qz::net
