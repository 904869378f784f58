// CheckMsgIncomingRules: takes a client's envelope apart.
#pragma once

#include "helpers/MessageParser.h"
#include "net/NetEvents.h"

#include <string>

namespace qz::protocol {

class EnvelopeReader {
public:
    explicit EnvelopeReader(const helpers::MessageParser& parser) : parser_(parser) { }

    /// @throws EngineError 5 for a text without the envelope's markers in their order, and for a body without
    /// a blank; 6 for a text of more than 32,767 characters. It is reported by the caller, who knows the
    /// connection.
    net::Envelope CheckMsgIncomingRules(const std::string& data) const;

private:
    const helpers::MessageParser& parser_;
};

} // namespace qz::protocol
