#include "Clean.h"

#include "base/Text.h"

#include <cstddef>

namespace velto {

namespace {

enum class Fate { Kept, Blank, Dropped };

Fate fate_of(char32_t c)
{
    constexpr char32_t kLineSeparator = 0x2028;
    constexpr char32_t kParagraphSeparator = 0x2029;
    constexpr char32_t kNextLine = 0x85;
    if (c == '\t' || c == '\n' || c == kNextLine || c == kLineSeparator || c == kParagraphSeparator) {
        return Fate::Blank;
    }
    const auto within = [c](char32_t first, char32_t last) {
        return c >= first && c <= last;
    };
    const bool control = c < 0x20 || within(0x7F, 0x9F);
    const bool turns =
        c == 0x061C || within(0x200E, 0x200F) || within(0x202A, 0x202E) || within(0x2066, 0x2069);
    const bool annotates = within(0xFFF9, 0xFFFB) || c == 0xFEFF;
    return control || turns || annotates ? Fate::Dropped : Fate::Kept;
}

struct Letter {
    char32_t value = 0;
    std::size_t length = 1;
};

/// Of well-formed UTF-8 only.
Letter letter_at(std::string_view text, std::size_t at)
{
    const auto byte = [&](std::size_t offset) {
        return static_cast<char32_t>(static_cast<unsigned char>(text[at + offset]));
    };
    const auto lead = byte(0);
    Letter letter{lead, lead < 0x80 ? 1U : lead < 0xE0 ? 2U : lead < 0xF0 ? 3U : 4U};
    if (letter.length > 1) {
        letter.value = lead & (0x7FU >> letter.length);
    }
    for (std::size_t i = 1; i < letter.length; ++i) {
        letter.value = (letter.value << 6U) | (byte(i) & 0x3FU);
    }
    return letter;
}

} // namespace

std::string clean(std::string_view text)
{
    const auto valid = qz::valid_utf8(text);
    std::string result;
    result.reserve(valid.size());
    for (std::size_t at = 0; at < valid.size();) {
        const auto [value, length] = letter_at(valid, at);
        switch (fate_of(value)) {
        case Fate::Kept:
            result.append(valid, at, length);
            break;
        case Fate::Blank:
            result.push_back(' ');
            break;
        case Fate::Dropped:
            break;
        }
        at += length;
    }
    return result;
}

} // namespace velto
