// From the units of a connection to envelopes, and what becomes of a connection whose units are faulty.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Deployment.h"
#include "net/ChunkStore.h"
#include "net/NetEvents.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace qz::net {

/// A faulty unit is dropped and reported. With the safeguard CloseMalformed only the first one of a
/// connection is reported, the others are counted, and at the limit the connection is to be closed. Then
/// kChunkReceived without the blank behind it is no fault.
class UnitReader {
public:
    /// What old clients send in answer to a chunk; it carries nothing and may come at any time.
    static constexpr std::string_view kChunkReceived = "chunkreceived";

    UnitReader(ChunkStore& chunks, IncomingMessages& messages, const config::Deployment& deployment,
        const Clock& clock, Journal& journal)
        : chunks_(chunks), messages_(messages), deployment_(deployment), clock_(clock), journal_(journal)
    {
    }

    enum class Result : std::uint8_t { Incomplete, Whole, Faulty, CloseConnection };
    /// Reads one unit: a frame, whose chunk is kept until its message is whole, or a bare envelope.
    /// @param envelope  receives the envelope of a whole message.
    /// Failures are reported under "DataIncoming", those of the envelope under "CheckMsgIncomingRules".
    Result read(std::int16_t socket, ChunkStore::Sender sender, const std::string& unit, Envelope& envelope);
    /// The connection has ended.
    void left(std::int16_t socket) { faults_.erase(socket); }
    void clear() { faults_.clear(); }

private:
    std::optional<std::string> whole_message(
        std::int16_t socket, ChunkStore::Sender sender, const std::string& unit);
    Result faulty(std::int16_t socket, std::string_view routine, const EngineError& error);

    ChunkStore& chunks_;
    IncomingMessages& messages_;
    const config::Deployment& deployment_;
    const Clock& clock_;
    Journal& journal_;
    std::unordered_map<std::int16_t, std::int32_t> faults_; // of the connections that had any
};

} // namespace qz::net
