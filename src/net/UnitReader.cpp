#include "net/UnitReader.h"

#include "helpers/Frame.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::net {

namespace {

bool is_chunk_received(std::string_view message)
{
    const std::string_view end = helpers::protocol_keywords().EnvelopeEnd;
    return message.ends_with(end)
        && message.substr(0, message.size() - end.size()).ends_with(UnitReader::kChunkReceived);
}

} // namespace

UnitReader::Result UnitReader::read(
    std::int16_t socket, ChunkStore::Sender sender, const std::string& unit, Envelope& envelope)
{
    std::string_view routine = "DataIncoming";
    std::optional<std::string> message;
    try {
        message = whole_message(socket, sender, unit);
        if (!message) {
            return Result::Incomplete;
        }
        routine = "CheckMsgIncomingRules";
        envelope = messages_.CheckMsgIncomingRules(*message);
        return Result::Whole;
    } catch (...) { // not guarded(): most faults of a connection are only counted
        if (deployment_.close_malformed() && message && is_chunk_received(*message)) {
            return Result::Incomplete;
        }
        return faulty(socket, routine, current_error());
    }
}

std::optional<std::string> UnitReader::whole_message(
    std::int16_t socket, ChunkStore::Sender sender, const std::string& unit)
{
    if (!unit.starts_with(helpers::protocol_keywords().FrameStart)) {
        return unit;
    }
    const auto frame = helpers::parse_frame(unit);
    if (!frame) {
        throw runtime_error(RuntimeError::InvalidProcedureCall);
    }
    return chunks_.put({socket, sender}, frame->header, frame->chunk, clock_.now());
}

UnitReader::Result UnitReader::faulty(std::int16_t socket, std::string_view routine, const EngineError& error)
{
    const auto limit = deployment_.close_malformed();
    const auto count = limit ? ++faults_[socket] : 1;
    if (count == 1) {
        journal_.ReportError(routine, error, {});
    }
    if (!limit || count < *limit) {
        return Result::Faulty;
    }
    journal_.log_own("Socket " + std::to_string(socket) + " closed: " + std::to_string(count)
        + (count == 1 ? " faulty unit" : " faulty units"));
    return Result::CloseConnection;
}

} // namespace qz::net
