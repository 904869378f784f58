// What goes over the wire for a queued message: the message to its recipient, the receipt to its sender.
#pragma once

#include "base/Journal.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"
#include "net/SocketPool.h"
#include "queue/QueueEntry.h"

#include <string>

namespace qz::queue {

class Delivery {
public:
    Delivery(const net::ConnectionTable& connections, const net::SocketPool& pool, net::Sender& sender,
        Journal& journal);

    /// Sends a message to its recipient's socket.
    /// @param logs_offline  whether a line is logged when the recipient is not connected.
    /// @return false when the recipient is not connected; the message then stays queued.
    bool Send_Message(const QueueEntry& entry, bool logs_offline = true);
    bool is_connected(const std::string& recipient) const;
    /// False while a recipient has not taken a good part of what was sent before. True for one who is off
    /// line.
    bool has_room(const std::string& recipient) const;
    /// Tells a sender that the recipient has the message; logged. Nothing happens when the sender is not
    /// connected.
    void send_receipt(const std::string& sender, const std::string& recipient, double msg_id);

private:
    const net::ConnectionTable& connections_;
    const net::SocketPool& pool_;
    net::Sender& sender_;
    Journal& journal_;
};

} // namespace qz::queue
