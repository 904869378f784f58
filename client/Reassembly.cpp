#include "client/Reassembly.h"

#include "client/Requests.h"

#include <algorithm>

namespace qz::client {

std::optional<std::string> Reassembly::put(
    const helpers::FrameHeader& header, std::string_view chunk, TimePoint now)
{
    if (header.chunk_index < 1 || header.chunk_index > header.chunk_count
        || header.chunk_count > static_cast<std::int32_t>(kMaxChunks)) {
        return std::nullopt;
    }
    if (header.chunk_count == 1) {
        return std::string(chunk);
    }
    sweep(now);
    const auto same = [&](const Partial& each) {
        return each.message_number == header.message_number && each.chunk_count == header.chunk_count;
    };
    auto partial = std::find_if(partials_.begin(), partials_.end(), same);
    if (partial == partials_.end()) {
        partials_.push_back({header.message_number, header.chunk_count, now, {}});
        partial = std::prev(partials_.end());
    }
    auto& chunks = partial->chunks;
    size_ += chunks.insert_or_assign(header.chunk_index, chunk).second ? 1U : 0U;
    if (chunks.size() < static_cast<std::size_t>(header.chunk_count)) {
        if (size_ > kMaxStored) {
            drop_oldest();
        }
        return std::nullopt;
    }
    std::string whole;
    for (const auto& [index, text] : chunks) {
        whole += text;
    }
    size_ -= chunks.size();
    partials_.erase(partial);
    return whole;
}

void Reassembly::sweep(TimePoint now)
{
    while (!partials_.empty() && now - partials_.front().begun > kMaxAge) {
        drop_oldest();
    }
}

void Reassembly::clear()
{
    partials_.clear();
    size_ = 0;
}

void Reassembly::drop_oldest()
{
    size_ -= partials_.front().chunks.size();
    partials_.pop_front();
}

} // namespace qz::client
