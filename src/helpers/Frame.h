// Frames: the numbered pieces in which a message travels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qz::helpers {

struct FrameHeader {
    std::int32_t frame_number = 0;
    std::int32_t message_number = 0;
    std::int32_t chunk_index = 0; // from 1 on
    std::int32_t chunk_count = 0;
    bool operator==(const FrameHeader&) const = default;
};

/// Most characters of a chunk.
inline constexpr std::size_t kChunkCharacters = 2048;

/// The header, the chunk and the frame's markers. The numbers are not negative.
std::string write_frame(const FrameHeader& header, std::string_view chunk);

struct Frame {
    FrameHeader header;
    std::string_view chunk; // part of the text that was parsed
};

/// Takes a frame apart; nothing when the text is none. The four numbers are plain decimal of 32 bits, none
/// negative, in their order and between their marks. Whether index and count make sense is for the receiver
/// to judge.
std::optional<Frame> parse_frame(std::string_view text);

/// The text in chunks of kChunkCharacters, the last one shorter. The count is the quotient rounded to the
/// nearest number, halves to even, and one more when the quotient is greater than that: no chunk for an empty
/// text, two for 2049 and for 3072 characters. The chunks are parts of `text`.
std::vector<std::string_view> split_into_chunks(std::string_view text);

} // namespace qz::helpers
