// Chunks of messages that have not arrived whole yet.
#pragma once

#include "base/DateTime.h"
#include "config/Deployment.h"
#include "helpers/Frame.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace qz::net {

/// Without the safeguard ChunksPerConnection, all connections share one table of kMaxChunks chunks. With it,
/// only users who are logged on have chunks kept, each connection up to that number and independently of the
/// others. A unit is at most UnitCutter::kMaxUnit bytes, so that the store holds at most that number times
/// 16 KiB for each online user, and none of it for longer than kMaxAgeSeconds.
class ChunkStore {
public:
    /// Most chunks of all senders together, the size of the interface's own table.
    static constexpr std::size_t kMaxChunks = 1001;
    /// Age after which a chunk is given up.
    static constexpr std::int64_t kMaxAgeSeconds = 30;

    enum class Sender : std::uint8_t { Stranger, User }; // not logged on, logged on
    struct From {
        std::int16_t socket = 0;
        Sender sender = Sender::Stranger;
    };

    explicit ChunkStore(const config::Deployment& deployment) : deployment_(deployment) { }

    /// Takes one chunk. A chunk that is there already is replaced; a count that differs from that of the
    /// chunks before begins the message anew.
    /// @return the whole message, joined in index order and dropped from the store, when this was its last
    /// chunk.
    /// @throws EngineError 9 for an index or count that makes no sense, 7 when a limit is reached; the chunk
    /// is dropped.
    std::optional<std::string> put(
        const From& from, const helpers::FrameHeader& header, std::string_view chunk, DateTime now);

    /// Gives up every chunk that arrived more than kMaxAgeSeconds before now.
    void sweep(DateTime now);
    /// The sockets of which a chunk was given up or dropped since the last call, so that a message of theirs
    /// never becomes whole.
    std::set<std::int16_t> take_incomplete();
    /// Drops what a socket has sent so far.
    void drop(std::int16_t socket);
    void clear();
    std::size_t size() const { return size_; }

private:
    struct Chunk {
        std::string text;
        DateTime arrival;
    };
    using MessageKey = std::pair<std::int16_t, std::int32_t>; // socket, message number
    struct Message {
        std::int32_t chunk_count = 0;
        std::map<std::int32_t, Chunk> chunks;
    };

    void drop_other_count(const MessageKey& key, std::int32_t chunk_count);
    void require_capacity(const From& from, const MessageKey& key, const helpers::FrameHeader& header);
    bool needs_capacity(const MessageKey& key, const helpers::FrameHeader& header) const;
    std::size_t chunks_of(std::int16_t socket) const;
    void removed(std::int16_t socket, std::size_t chunks);

    const config::Deployment& deployment_;
    std::map<MessageKey, Message> messages_;
    std::set<std::int16_t> incomplete_;
    std::size_t size_ = 0;
    std::unordered_map<std::int16_t, std::size_t> by_socket_; // chunks of the sockets that have any
};

} // namespace qz::net
