#include "platform/odbc/WideText.h"

#include "base/Text.h"

#include <cstddef>
#include <cstdint>

namespace qz::platform {

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

bool is_ascii(std::string_view text)
{
    for (const char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            return false;
        }
    }
    return true;
}

/// The character at `at`, which is moved behind it. The text is well-formed.
std::uint32_t take_character(std::string_view text, std::size_t& at)
{
    const auto first = static_cast<unsigned char>(text[at++]);
    int more = first < 0x80 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
    std::uint32_t character = more == 0 ? first : first & (0x3FU >> static_cast<unsigned>(more));
    for (; more > 0 && at < text.size(); --more) {
        character = (character << 6U) | (static_cast<unsigned char>(text[at++]) & 0x3FU);
    }
    return character;
}

void append(std::string& text, std::uint32_t character)
{
    const auto add = [&](std::uint32_t byte) {
        text += static_cast<char>(static_cast<unsigned char>(byte));
    };
    if (character < 0x80) {
        add(character);
    } else if (character < 0x800) {
        add(0xC0U | (character >> 6U));
        add(0x80U | (character & 0x3FU));
    } else if (character < 0x10000) {
        add(0xE0U | (character >> 12U));
        add(0x80U | ((character >> 6U) & 0x3FU));
        add(0x80U | (character & 0x3FU));
    } else {
        add(0xF0U | (character >> 18U));
        add(0x80U | ((character >> 12U) & 0x3FU));
        add(0x80U | ((character >> 6U) & 0x3FU));
        add(0x80U | (character & 0x3FU));
    }
}

} // namespace

std::u16string wide(std::string_view text)
{
    std::u16string result;
    result.reserve(text.size());
    if (is_ascii(text)) {
        result.assign(text.begin(), text.end());
        return result;
    }
    const auto valid = valid_utf8(text);
    for (std::size_t at = 0; at < valid.size();) {
        const auto character = take_character(valid, at);
        if (character < 0x10000) {
            result += static_cast<char16_t>(character);
        } else {
            result += static_cast<char16_t>(0xD800U + ((character - 0x10000U) >> 10U));
            result += static_cast<char16_t>(0xDC00U + (character & 0x3FFU));
        }
    }
    return result;
}

std::string narrow(std::u16string_view text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        std::uint32_t character = text[at];
        const bool high = character >= 0xD800 && character < 0xDC00;
        const bool low = character >= 0xDC00 && character < 0xE000;
        const bool pair = high && at + 1 < text.size() && text[at + 1] >= 0xDC00 && text[at + 1] < 0xE000;
        if (pair) {
            character = 0x10000U + ((character - 0xD800U) << 10U) + (text[++at] - 0xDC00U);
        } else if (high || low) {
            character = kReplacement;
        }
        append(result, character);
    }
    return result;
}

} // namespace qz::platform
