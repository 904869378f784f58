#include "net/ChunkStore.h"

#include "base/EngineError.h"

#include <limits>
#include <utility>

namespace qz::net {

std::optional<std::string> ChunkStore::put(
    std::int16_t socket, const helpers::FrameHeader& header, std::string_view chunk, DateTime now)
{
    if (header.chunk_index < 1 || header.chunk_index > header.chunk_count) {
        throw runtime_error(RuntimeError::SubscriptOutOfRange);
    }
    if (header.chunk_count == 1) {
        return std::string(chunk); // nearly every message: nothing to store
    }
    const MessageKey key{socket, header.message_number};
    drop_other_count(key, header.chunk_count);
    if ((size_ >= kMaxChunks || chunks_of(socket) >= kMaxChunksPerSender) && needs_room(key, header)) {
        incomplete_.insert(socket);
        throw runtime_error(
            RuntimeError::OutOfMemory, "The store of partial messages is full; a chunk was dropped");
    }
    auto& message = messages_[key];
    message.chunk_count = header.chunk_count;
    size_ +=
        message.chunks.insert_or_assign(header.chunk_index, Chunk{std::string(chunk), now}).second ? 1U : 0U;
    if (message.chunks.size() < static_cast<std::size_t>(message.chunk_count)) {
        return std::nullopt;
    }
    std::string whole;
    for (const auto& [index, part] : message.chunks) {
        whole += part.text;
    }
    size_ -= message.chunks.size();
    messages_.erase(key);
    return whole;
}

/// Chunks of one message agree on their count; one that does not begins another message of that number.
void ChunkStore::drop_other_count(const MessageKey& key, std::int32_t chunk_count)
{
    const auto message = messages_.find(key);
    if (message != messages_.end() && message->second.chunk_count != chunk_count) {
        size_ -= message->second.chunks.size();
        messages_.erase(message);
    }
}

/// False for a chunk that replaces another and for the one that makes its message whole.
bool ChunkStore::needs_room(const MessageKey& key, const helpers::FrameHeader& header) const
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
        size_ -= dropped;
        if (dropped > 0) {
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
        size_ -= message->second.chunks.size();
        message = messages_.erase(message);
    }
}

std::set<std::int16_t> ChunkStore::take_incomplete()
{
    return std::exchange(incomplete_, {});
}

void ChunkStore::clear()
{
    incomplete_.clear();
    messages_.clear();
    size_ = 0;
}

std::size_t ChunkStore::chunks_of(std::int16_t socket) const
{
    std::size_t count = 0;
    auto message = messages_.lower_bound({socket, (std::numeric_limits<std::int32_t>::min)()});
    for (; message != messages_.end() && message->first.first == socket; ++message) {
        count += message->second.chunks.size();
    }
    return count;
}

} // namespace qz::net
