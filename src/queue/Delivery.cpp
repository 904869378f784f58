#include "queue/Delivery.h"

#include "base/Text.h"
#include "helpers/MessageParser.h"
#include "helpers/ProtocolKeywords.h"
#include "platform/Sockets.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace qz::queue {

using helpers::protocol_keywords;

namespace {

/// Appends `key=value ` with the value's blanks substituted, so that it ends where the next key begins.
void append_field(std::string& body, std::string_view key, std::string_view value)
{
    body.append(key).push_back('=');
    const auto begin = static_cast<std::ptrdiff_t>(body.size());
    body.append(value).push_back(' ');
    std::replace(body.begin() + begin, body.end() - 1, ' ', protocol_keywords().BlankSubstitute.front());
}

std::string body_of(const QueueEntry& entry)
{
    constexpr std::size_t kFields = 200; // about what all but the text takes
    std::string body;
    body.reserve(kFields + entry.text.size());
    append_field(
        body, "screennamefrom", entry.to_room() ? protocol_keywords().RoomPrefix + entry.room : entry.sender);
    append_field(body, "screennameto", entry.recipient);
    append_field(body, "receivedtime", entry.received_time.text());
    append_field(body, "expirationtime", entry.expiration_time.text());
    append_field(body, "receiptrequested", helpers::boolean_text(entry.receipt_requested));
    if (entry.to_room()) {
        append_field(body, "roomsender", entry.sender);
    }
    return body.append("msg=").append(entry.text.str());
}

} // namespace

Delivery::Delivery(const net::ConnectionTable& connections, const net::SocketPool& pool, net::Sender& sender,
    Journal& journal)
    : connections_(connections), pool_(pool), sender_(sender), journal_(journal)
{
}

bool Delivery::is_connected(const std::string& recipient) const
{
    return pool_.is_connected(connections_.Retrieve_UserSocket(recipient));
}

bool Delivery::has_room(const std::string& recipient) const
{
    constexpr std::size_t kEnough = std::size_t{256} * 1024; // a connection with a megabyte is closed
    return pool_.unsent(connections_.Retrieve_UserSocket(recipient)) < kEnough;
}

bool Delivery::Send_Message(const QueueEntry& entry, bool logs_offline)
{
    const auto socket = connections_.Retrieve_UserSocket(entry.recipient);
    const auto state = pool_.state(socket);
    if (state != platform::kSocketConnected && !logs_offline) {
        return false;
    }
    if (state != platform::kSocketConnected) {
        journal_.Log("User " + entry.recipient + " is offline (socket [" + std::to_string(socket)
                + "] status is " + std::to_string(state) + ") and there is a message (" + decimal(entry.MsgID)
                + ") to be delivered to him!",
            entry.recipient, protocol_keywords().HostAddress);
        return false;
    }
    double number = entry.MsgID;
    sender_.SendData(socket, protocol_keywords().InstantMessage, body_of(entry), number);
    return true;
}

void Delivery::send_receipt(const std::string& sender, const std::string& recipient, double msg_id)
{
    const auto socket = connections_.Retrieve_UserSocket(sender);
    if (pool_.state(socket) != platform::kSocketConnected) {
        return;
    }
    const auto id = decimal(msg_id);
    sender_.SendData(
        socket, protocol_keywords().MessageReceipt, joined({"received=", id, " screennameto=", recipient}));
    journal_.Log(
        joined({"Receipt for MsgID ", id, " sent to ", sender}), sender, protocol_keywords().HostAddress);
}

} // namespace qz::queue
