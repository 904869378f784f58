// Chunks of messages that have not arrived whole yet.
#pragma once

#include "base/DateTime.h"
#include "helpers/Frame.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace qz::net {

class ChunkStore {
public:
    /// Most chunks of all senders together, the size of the interface's own table.
    static constexpr std::size_t kMaxChunks = 1001;
    /// Most chunks of one sender: one peer alone cannot fill the store for all others.
    static constexpr std::size_t kMaxChunksPerSender = 100;
    /// Age after which a chunk is given up.
    static constexpr std::int64_t kMaxAgeSeconds = 30;

    /// Takes one chunk. A chunk that is there already is replaced; a count that differs from that of the
    /// chunks before begins the message anew.
    /// @return the whole message, joined in index order and dropped from the store, when this was its last
    /// chunk.
    /// @throws EngineError 9 for an index or count that makes no sense, 7 when the store is full; the chunk
    /// is dropped.
    std::optional<std::string> put(
        std::int16_t socket, const helpers::FrameHeader& header, std::string_view chunk, DateTime now);

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
    bool needs_room(const MessageKey& key, const helpers::FrameHeader& header) const;
    std::size_t chunks_of(std::int16_t socket) const;

    std::map<MessageKey, Message> messages_;
    std::set<std::int16_t> incomplete_;
    std::size_t size_ = 0;
};

} // namespace qz::net
