// DataIncoming: from the units that arrive on a socket to messages whose sender is known.
#pragma once

#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "net/ConnectionTable.h"
#include "net/NetEvents.h"
#include "net/Sender.h"
#include "net/SocketCloser.h"
#include "net/UnitReader.h"

#include <cstdint>
#include <string>

namespace qz::net {

class Receiver {
public:
    /// Where a message goes, and what is told about it.
    struct Listeners {
        IncomingMessages& messages;
        TrafficEvents& traffic;
    };
    Receiver(const ConnectionTable& connections, UnitReader& units, Sender& sender, SocketCloser& closer,
        const helpers::MessageParser& parser, Listeners listeners, Journal& journal);

    /// One unit: a frame, which is kept until its message is whole, or a bare envelope.
    /// A message passes when its socket is logged on and it names the socket's session id, or when the socket
    /// is not logged on and it is one of the few that may come before. Every other sender is told so and
    /// disconnected.
    void DataIncoming(std::int16_t socket, const std::string& data);

private:
    void take(std::int16_t socket, const Envelope& envelope);
    bool is_allowed(std::int16_t socket, const Envelope& envelope) const;
    void close_malformed(std::int16_t socket);
    void refuse(std::int16_t socket);

    const ConnectionTable& connections_;
    UnitReader& units_;
    Sender& sender_;
    SocketCloser& closer_;
    const helpers::MessageParser& parser_;
    Listeners listeners_;
    Journal& journal_;
};

} // namespace qz::net
