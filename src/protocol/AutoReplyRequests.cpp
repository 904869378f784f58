#include "protocol/AutoReplyRequests.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"
#include "protocol/Values.h"

namespace qz::protocol {

using helpers::protocol_keywords;

AutoReplyRequests::AutoReplyRequests(store::AutoReplies& auto_replies, const helpers::MessageParser& parser,
    net::Sender& sender, Journal& journal)
    : auto_replies_(auto_replies), parser_(parser), sender_(sender), journal_(journal)
{
}

void AutoReplyRequests::Request_AutoReply(const Request& request)
{
    guarded(journal_, "Request_AutoReply", request.remote_ip, [&] {
        const auto action = parser_.value(request.parameters, "action");
        if (action == "check") {
            check(request);
        } else if (action == "update") {
            update(request);
        }
    });
}

void AutoReplyRequests::check(const Request& request)
{
    const auto& user = request.user;
    const auto& enabled = helpers::boolean_text(auto_replies_.Retrieve_AutoReply(user));
    const auto message = without_blanks(auto_replies_.Retrieve_AutoReplyMessage(user));
    sender_.SendData(request.socket, protocol_keywords().AutoReply,
        "action=get status=" + enabled + " message=" + message);
    journal_.Log("AutoReply check for " + user, user, request.remote_ip);
}

void AutoReplyRequests::update(const Request& request)
{
    const auto& user = request.user;
    const auto& keywords = protocol_keywords();
    const bool enabled = helpers::read_boolean(parser_.value(request.parameters, "status"));
    const bool saved =
        auto_replies_.Update_AutoReply(user, blank_value(parser_, request.parameters, "message"), enabled);
    sender_.SendData(request.socket, keywords.AutoReply,
        "action=save answer=" + (saved ? keywords.AnswerYes : keywords.AnswerNo));
    journal_.Log(
        std::string("AutoReply save ") + (saved ? "OK" : "NO") + " for " + user, user, request.remote_ip);
}

} // namespace qz::protocol
