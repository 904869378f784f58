#include "net/Receiver.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::net {

namespace {

/// What old clients send in answer to a chunk; it carries nothing and may come at any time.
constexpr std::string_view kChunkReceived = "chunkreceived";

} // namespace

Receiver::Receiver(const ConnectionTable& connections, UnitReader& units, Sender& sender,
    SocketCloser& closer, const helpers::MessageParser& parser, Listeners listeners, Journal& journal)
    : connections_(connections), units_(units), sender_(sender), closer_(closer), parser_(parser),
      listeners_(listeners), journal_(journal)
{
}

void Receiver::DataIncoming(std::int16_t socket, const std::string& data)
{
    guarded(journal_, "DataIncoming", no_address, [&] {
        const auto sender =
            connections_.last_on(socket) == nullptr ? ChunkStore::Sender::Stranger : ChunkStore::Sender::User;
        Envelope envelope;
        switch (units_.read(socket, sender, data, envelope)) {
        case UnitReader::Result::Whole:
            take(socket, envelope);
            break;
        case UnitReader::Result::CloseConnection:
            closer_.SocketClosing(socket);
            break;
        case UnitReader::Result::Incomplete:
        case UnitReader::Result::Faulty:
            break;
        }
    });
}

void Receiver::take(std::int16_t socket, const Envelope& envelope)
{
    if (envelope.body.empty()) {
        return;
    }
    if (!is_allowed(socket, envelope)) {
        refuse(socket);
        return;
    }
    listeners_.messages.HandleIncoming(socket, envelope.body, envelope.number, envelope.first_word);
    listeners_.traffic.traffic(Direction::Ingoing);
}

bool Receiver::is_allowed(std::int16_t socket, const Envelope& envelope) const
{
    const auto& keywords = helpers::protocol_keywords();
    if (const auto* record = connections_.last_on(socket)) {
        return parser_.value(envelope.body, "sessionidvalue") == record->SessionID;
    }
    return envelope.first_word == kChunkReceived || envelope.first_word == keywords.LogOn
        || envelope.first_word == keywords.LastVersionRequest;
}

void Receiver::refuse(std::int16_t socket)
{
    const auto& keywords = helpers::protocol_keywords();
    sender_.SendData(
        socket, keywords.LogOn, "You are not authorized to use this server. Please log on again!");
    sender_.SendData(socket, keywords.LogOn, "answer=" + keywords.AnswerNo);
    closer_.SocketClosing(socket);
}

} // namespace qz::net
