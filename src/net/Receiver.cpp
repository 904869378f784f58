#include "net/Receiver.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::net {

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
            close_malformed(socket);
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
    return envelope.first_word == UnitReader::kChunkReceived || envelope.first_word == keywords.LogOn
        || envelope.first_word == keywords.LastVersionRequest;
}

/// A user is told why; whoever is not logged on would not know what to make of it.
void Receiver::close_malformed(std::int16_t socket)
{
    if (const auto* record = connections_.last_on(socket)) {
        const auto user = record->UserName;
        sender_.SendData(socket, helpers::protocol_keywords().Notice,
            "Your connection is closed: too many faulty requests");
        if (!connections_.is_logged_on(user, socket)) { // gone while sending yielded
            return;
        }
    }
    closer_.SocketClosing(socket);
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
