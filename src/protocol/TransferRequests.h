// Relays the negotiation of file and screen transfers; the transfers themselves run between the clients.
#pragma once

#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"
#include "protocol/Request.h"

#include <string>

namespace qz::protocol {

/// A recipient who is not on line makes a request or an answer vanish without a reply. Whether transfers are
/// allowed at all is checked before.
class TransferRequests {
public:
    TransferRequests(const net::ConnectionTable& connections, const helpers::MessageParser& parser,
        net::Sender& sender, Journal& journal);

    void Request_FileTransfer(const Request& request);
    void Request_ScreenTransfer(const Request& request);

private:
    struct Peers {
        std::string from;
        std::string to; // whoever receives this message: in an answer the first requester
    };
    void relay(const Request& request, const std::string& keyword, const char* log_prefix);
    void relay_answer(const Request& request, const std::string& keyword, const Peers& peers);
    void send(
        const Request& request, const std::string& keyword, const std::string& action, const Peers& peers);

    const net::ConnectionTable& connections_;
    const helpers::MessageParser& parser_;
    net::Sender& sender_;
    Journal& journal_;
};

} // namespace qz::protocol
