#include "protocol/TransferRequests.h"

#include "helpers/ProtocolKeywords.h"
#include "protocol/Values.h"

namespace qz::protocol {

using helpers::protocol_keywords;

namespace {

constexpr const char* kFileTransferPrefix = "FileTransfer Request from ";
constexpr const char* kScreenTransferPrefix = "ScreenTransfer Request from ";

} // namespace

TransferRequests::TransferRequests(const net::ConnectionTable& connections,
    const helpers::MessageParser& parser, net::Sender& sender, Journal& journal)
    : connections_(connections), parser_(parser), sender_(sender), journal_(journal)
{
}

void TransferRequests::Request_FileTransfer(const Request& request)
{
    relay(request, protocol_keywords().FileTransfer, kFileTransferPrefix);
}

void TransferRequests::Request_ScreenTransfer(const Request& request)
{
    relay(request, protocol_keywords().ScreenTransfer, kScreenTransferPrefix);
}

void TransferRequests::relay(const Request& request, const std::string& keyword, const char* log_prefix)
{
    const Peers peers{request.user, screen_name(parser_, request.parameters, "screennameto")};
    if (!connections_.UserIsOnline(peers.to)) {
        return;
    }
    const auto action = parser_.value(request.parameters, "action");
    if (action == "request") {
        send(request, keyword, "action=request", peers);
        journal_.Log(log_prefix + peers.from + "  to " + peers.to, peers.from, request.remote_ip);
    } else if (action == "answer") {
        relay_answer(request, keyword, peers);
    }
}

/// Answers about screens use the key and the log line of files too: clients and readers of the log know them
/// so.
void TransferRequests::relay_answer(const Request& request, const std::string& keyword, const Peers& peers)
{
    const auto answer = parser_.value(request.parameters, "filetransfer");
    if (answer != "accepted" && answer != "denied") {
        return;
    }
    send(request, keyword, "action=answer filetransfer=" + answer, peers);
    journal_.Log(
        kFileTransferPrefix + peers.from + "  to " + peers.to + " has been " + answer + " from " + peers.to,
        peers.from, request.remote_ip);
}

void TransferRequests::send(
    const Request& request, const std::string& keyword, const std::string& action, const Peers& peers)
{
    sender_.SendData(connections_.Retrieve_UserSocket(peers.to), keyword,
        action + " screennamefrom=" + without_blanks(peers.from) + " screennameto=" + without_blanks(peers.to)
            + " remoteip=" + request.remote_ip);
}

} // namespace qz::protocol
