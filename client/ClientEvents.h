// The events through which a program hears its client.
#pragma once

#include "client/Incoming.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace qz::client {

/// Why a connection has ended.
enum class End {
    Stopped,     // the program asked for it
    Unreachable, // no connection came about
    Refused,     // the logon was refused, or never answered since the start
    NoAnswer,    // the server fell silent
    Closed,      // the other end, or the network, closed the connection
    SessionLost, // the server no longer takes this session for valid
    Oversized,   // the server sent a unit that is larger than any may be
};

struct Disconnected {
    End end = End::Closed;
    std::string text; // one English sentence
    /// The notice that was the last the server said, if it was: usually its reason for hanging up.
    std::string last_notice;
    /// When the next connection is tried; none after Stopped and Refused.
    std::optional<std::chrono::steady_clock::time_point> next_attempt;
};

/// Raised in the middle of the client's work: a listener returns soon and does not throw. It may send, start
/// and stop; it does not destroy the client.
class ClientEvents {
public:
    /// A connection stands; the logon follows by itself.
    virtual void connected() = 0;
    /// From here on requests can be sent. Called again after each reconnection.
    virtual void logged_on() = 0;
    /// @param reasons  the texts that came with the refusal; empty when the server gave none, as for a wrong
    /// password or a name that it does not know.
    virtual void refused(const std::vector<std::string>& reasons) = 0;
    /// Whatever else the server says, while logged on and on the way there.
    virtual void incoming(const Incoming& incoming) = 0;
    virtual void disconnected(const Disconnected& disconnected) = 0;
    /// The server has accepted a message that was to be delivered, or a notice has told why it refused it.
    virtual void settled(MessageId /*id*/) { }

protected:
    ~ClientEvents() = default; // never deleted through this type
};

} // namespace qz::client
