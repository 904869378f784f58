// The request handlers that the dispatcher's table names.
#pragma once

#include "net/Sender.h"
#include "protocol/Request.h"

namespace qz::protocol {

class Handlers {
public:
    explicit Handlers(net::Sender& sender) : sender_(sender) { }

    /// Request_Echo: answers with the same keyword and an empty body.
    void echo(const Request& request);

private:
    net::Sender& sender_;
};

} // namespace qz::protocol
