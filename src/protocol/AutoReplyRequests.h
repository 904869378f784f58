// A user's own automatic reply: asked for and changed.
#pragma once

#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "net/Sender.h"
#include "protocol/Request.h"
#include "store/AutoReplies.h"

namespace qz::protocol {

class AutoReplyRequests {
public:
    AutoReplyRequests(store::AutoReplies& auto_replies, const helpers::MessageParser& parser,
        net::Sender& sender, Journal& journal);

    /// Actions "check" and "update"; nothing else is answered.
    void Request_AutoReply(const Request& request);

private:
    void check(const Request& request);
    void update(const Request& request);

    store::AutoReplies& auto_replies_;
    const helpers::MessageParser& parser_;
    net::Sender& sender_;
    Journal& journal_;
};

} // namespace qz::protocol
