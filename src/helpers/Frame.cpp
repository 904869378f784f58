#include "helpers/Frame.h"

#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <system_error>

namespace qz::helpers {

namespace {

bool take(std::string_view& text, const std::string& marker)
{
    if (!text.starts_with(marker)) {
        return false;
    }
    text.remove_prefix(marker.size());
    return true;
}

/// Takes a number between two marks off the front of the text.
bool take_number(std::string_view& text, const std::string& mark, std::int32_t& number)
{
    // from_chars would read a minus sign.
    if (!take(text, mark) || text.empty() || text.front() == '-') {
        return false;
    }
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc{}) {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
    return take(text, mark);
}

} // namespace

std::string write_frame(const FrameHeader& header, std::string_view chunk)
{
    const auto& words = protocol_keywords();
    std::string result;
    result.reserve(chunk.size() + 64);
    const auto append = [&](const std::string& mark, std::int32_t number) {
        std::array<char, std::numeric_limits<std::int32_t>::digits10 + 2> digits{};
        const auto end = std::to_chars(digits.begin(), digits.end(), number).ptr;
        result.append(mark).append(digits.begin(), end).append(mark);
    };
    result.append(words.FrameStart);
    append(words.FrameNumberMark, header.frame_number);
    append(words.MessageNumberMark, header.message_number);
    append(words.ChunkIndexMark, header.chunk_index);
    append(words.ChunkCountMark, header.chunk_count);
    return result.append(chunk).append(words.FrameEnd);
}

std::optional<Frame> parse_frame(std::string_view text)
{
    const auto& words = protocol_keywords();
    Frame frame;
    auto& header = frame.header;
    if (!take(text, words.FrameStart) || !take_number(text, words.FrameNumberMark, header.frame_number)
        || !take_number(text, words.MessageNumberMark, header.message_number)
        || !take_number(text, words.ChunkIndexMark, header.chunk_index)
        || !take_number(text, words.ChunkCountMark, header.chunk_count)) {
        return std::nullopt;
    }
    const auto end = text.find(words.FrameEnd);
    if (end == std::string_view::npos || end + words.FrameEnd.size() != text.size()) {
        return std::nullopt;
    }
    frame.chunk = text.substr(0, end);
    return frame;
}

std::vector<std::string_view> split_into_chunks(std::string_view text)
{
    // Rounding and then adding one when the quotient is greater always gives the quotient rounded up.
    std::vector<std::string_view> chunks;
    while (!text.empty()) {
        chunks.push_back(first_characters(text, kChunkCharacters));
        text.remove_prefix(chunks.back().size());
    }
    return chunks;
}

} // namespace qz::helpers
