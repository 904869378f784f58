// What is read as a frame is written the same again, and a text's chunks make up the text.
#include "Fuzzing.h"

#include "base/Text.h"
#include "helpers/Frame.h"

#include <string>

int fuzz_frame_header(const std::uint8_t* data, std::size_t size)
{
    using qz::fuzz::promise;
    const auto text = qz::fuzz::text_of(data, size);
    if (const auto frame = qz::helpers::parse_frame(text)) {
        const auto& header = frame->header;
        promise(header.frame_number >= 0 && header.message_number >= 0);
        promise(header.chunk_index >= 0 && header.chunk_count >= 0);
        const auto again = qz::helpers::write_frame(header, frame->chunk);
        promise(again.size() <= text.size()); // leading zeros are gone
        const auto second = qz::helpers::parse_frame(again);
        promise(second && second->header == header && second->chunk == frame->chunk);
    }
    std::string joined;
    for (const auto chunk : qz::helpers::split_into_chunks(text)) {
        promise(!chunk.empty() && qz::character_count(chunk) <= qz::helpers::kChunkCharacters);
        joined += chunk;
    }
    promise(joined == text);
    return 0;
}
