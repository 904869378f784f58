// CheckMsgIncomingRules: takes a client's envelope apart.
#pragma once

#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "net/NetEvents.h"

#include <string>

namespace qz::protocol {

class EnvelopeReader {
public:
    EnvelopeReader(const helpers::MessageParser& parser, Journal& journal)
        : parser_(parser), journal_(journal)
    {
    }

    /// A text without the envelope's markers in their order gives an empty body. A text of more than 32,767
    /// characters is an overflow, reported under "CheckMsgIncomingRules", and gives an empty body too.
    net::Envelope CheckMsgIncomingRules(const std::string& data);

private:
    net::Envelope read(const std::string& data) const;

    const helpers::MessageParser& parser_;
    Journal& journal_;
};

} // namespace qz::protocol
