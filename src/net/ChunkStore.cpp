#include "net/ChunkStore.h"

#include "base/EngineError.h"

#include <limits>
#include <utility>

namespace qz::net {

std::optional<std::string> ChunkStore::put(
    const From& from, const helpers::FrameHeader& header, std::string_view chunk, DateTime now)
{
    if (header.chunk_index < 1 || header.chunk_index > header.chunk_count) {
        throw runtime_error(RuntimeError::SubscriptOutOfRange);
    }
    if (header.chunk_count == 1) {
        return std::string(chunk); // nearly every message: nothing to store
    }
    const MessageKey key{from.socket, header.message_number};
    drop_other_count(key, header.chunk_count);
    require_capacity(from, key, header);
    auto& message = messages_[key];
    message.chunk_count = header.chunk_count;
    if (message.chunks.insert_or_assign(header.chunk_index, Chunk{std::string(chunk), now}).second) {
        ++size_;
        ++by_socket_[from.socket];
    }
    if (message.chunks.size() < static_cast<std::size_t>(message.chunk_count)) {
        return std::nullopt;
    }
    std::string whole;
    for (const auto& [index, part] : message.chunks) {
        whole += part.text;
    }
    removed(from.socket, message.chunks.size());
    messages_.erase(key);
    return whole;
}

/// Chunks of one message agree on their count; one that does not begins another message of that number.
void ChunkStore::drop_other_count(const MessageKey& key, std::int32_t chunk_count)
{
    const auto message = messages_.find(key);
    if (message != messages_.end() && message->second.chunk_count != chunk_count) {
        removed(key.first, message->second.chunks.size());
        messages_.erase(message);
    }
}

/// The error says which limit is reached.
void ChunkStore::require_capacity(const From& from, const MessageKey& key, const helpers::FrameHeader& header)
{
    const auto most = deployment_.chunks_per_connection();
    std::string reached;
    if (most && from.sender == Sender::Stranger) {
        reached = "ChunksPerConnection: before the logon a message must fit into one chunk";
    } else if (most && chunks_of(from.socket) >= static_cast<std::size_t>(*most)) {
        reached = "ChunksPerConnection is reached: " + std::to_string(*most)
            + " chunks are kept of this connection; a chunk was dropped";
    } else if (!most && size_ >= kMaxChunks) {
        reached = "The store of partial messages is full: " + std::to_string(kMaxChunks)
            + " chunks are kept; a chunk was dropped";
    }
    if (!reached.empty() && needs_capacity(key, header)) {
        incomplete_.insert(from.socket);
        throw runtime_error(RuntimeError::OutOfMemory, std::move(reached));
    }
}

/// False for a chunk that replaces another and for the one that makes its message whole.
bool ChunkStore::needs_capacity(const MessageKey& key, const helpers::FrameHeader& header) const
{
    const auto message = messages_.find(key);
    return message == messages_.end()
        || (!message->second.chunks.contains(header.chunk_index)
            && message->second.chunks.size() + 1 < static_cast<std::size_t>(header.chunk_count));
}

void ChunkStore::sweep(DateTime now)
{
    for (auto message = messages_.begin(); message != messages_.end();) {
        const auto dropped = std::erase_if(message->second.chunks,
            [&](const auto& entry) { return seconds_between(entry.second.arrival, now) > kMaxAgeSeconds; });
        if (dropped > 0) {
            removed(message->first.first, dropped);
            incomplete_.insert(message->first.first);
        }
        message = message->second.chunks.empty() ? messages_.erase(message) : std::next(message);
    }
}

void ChunkStore::drop(std::int16_t socket)
{
    incomplete_.erase(socket);
    auto message = messages_.lower_bound({socket, (std::numeric_limits<std::int32_t>::min)()});
    while (message != messages_.end() && message->first.first == socket) {
        message = messages_.erase(message);
    }
    removed(socket, chunks_of(socket));
}

std::set<std::int16_t> ChunkStore::take_incomplete()
{
    return std::exchange(incomplete_, {});
}

void ChunkStore::clear()
{
    incomplete_.clear();
    messages_.clear();
    by_socket_.clear();
    size_ = 0;
}

std::size_t ChunkStore::chunks_of(std::int16_t socket) const
{
    const auto count = by_socket_.find(socket);
    return count == by_socket_.end() ? 0 : count->second;
}

void ChunkStore::removed(std::int16_t socket, std::size_t chunks)
{
    const auto count = by_socket_.find(socket);
    if (count == by_socket_.end()) {
        return;
    }
    size_ -= chunks;
    count->second -= chunks;
    if (count->second == 0) {
        by_socket_.erase(count);
    }
}

} // namespace qz::net
