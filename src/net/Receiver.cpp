#include "net/Receiver.h"

#include "base/Guarded.h"
#include "helpers/Frame.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::net {

namespace {

/// What old clients send in answer to a chunk; it carries nothing and may come at any time.
constexpr std::string_view kChunkReceived = "chunkreceived";

} // namespace

Receiver::Receiver(const ConnectionTable& connections, ChunkStore& chunks, Sender& sender,
    SocketCloser& closer, const helpers::MessageParser& parser, const Clock& clock, Listeners listeners,
    Journal& journal)
    : connections_(connections), chunks_(chunks), sender_(sender), closer_(closer), parser_(parser),
      clock_(clock), listeners_(listeners), journal_(journal)
{
}

void Receiver::DataIncoming(std::int16_t socket, const std::string& data)
{
    guarded(journal_, "DataIncoming", no_address, [&] {
        const auto message = whole_message(socket, data);
        if (!message) {
            return;
        }
        const auto envelope = listeners_.messages.CheckMsgIncomingRules(*message);
        if (envelope.body.empty()) {
            return;
        }
        if (!is_allowed(socket, envelope)) {
            refuse(socket);
            return;
        }
        listeners_.messages.HandleIncoming(socket, envelope.body, envelope.number, envelope.first_word);
        listeners_.traffic.traffic(Direction::Ingoing);
    });
}

std::optional<std::string> Receiver::whole_message(std::int16_t socket, const std::string& data)
{
    if (!data.starts_with(helpers::protocol_keywords().FrameStart)) {
        return data;
    }
    const auto frame = helpers::parse_frame(data);
    return frame ? chunks_.put(socket, frame->header, frame->chunk, clock_.now()) : std::nullopt;
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
