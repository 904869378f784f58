#include "base/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <cwctype>
#include <span>
#include <system_error>

namespace qz {

namespace {

constexpr char32_t kNotACharacter = 0xFFFFFFFF;
constexpr std::string_view kReplacement = "\xEF\xBF\xBD"; // U+FFFD

struct CodePoint {
    char32_t value;     // kNotACharacter when the bytes are not well-formed UTF-8
    std::size_t length; // bytes used, at least 1
};

bool is_continuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// Reads the code point that begins at `at`. Follows the table of well-formed sequences of the Unicode
/// Standard (chapter 3, table 3-7): no overlong forms, no surrogates, nothing above U+10FFFF.
CodePoint code_point_at(std::string_view text, std::size_t at)
{
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) {
        return {lead, 1};
    }
    const std::size_t length = lead >= 0xC2 && lead < 0xE0 ? 2
        : lead >= 0xE0 && lead < 0xF0                      ? 3
        : lead >= 0xF0 && lead < 0xF5                      ? 4
                                                           : 0;
    if (length == 0 || at + length > text.size()) {
        return {kNotACharacter, 1};
    }
    auto value = static_cast<char32_t>(lead & (0x7FU >> length));
    for (std::size_t i = 1; i < length; ++i) {
        if (!is_continuation(text[at + i])) {
            return {kNotACharacter, 1};
        }
        value = (value << 6U) | (static_cast<unsigned char>(text[at + i]) & 0x3FU);
    }
    const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    if (overlong || surrogate || value > 0x10FFFF) {
        return {kNotACharacter, 1};
    }
    return {value, length};
}

void append_code_point(std::string& text, char32_t value)
{
    const auto byte = [&](char32_t bits) {
        text.push_back(static_cast<char>(static_cast<unsigned char>(bits)));
    };
    if (value < 0x80) {
        byte(value);
    } else if (value < 0x800) {
        byte(0xC0 | (value >> 6U));
        byte(0x80 | (value & 0x3FU));
    } else if (value < 0x10000) {
        byte(0xE0 | (value >> 12U));
        byte(0x80 | ((value >> 6U) & 0x3FU));
        byte(0x80 | (value & 0x3FU));
    } else {
        byte(0xF0 | (value >> 18U));
        byte(0x80 | ((value >> 12U) & 0x3FU));
        byte(0x80 | ((value >> 6U) & 0x3FU));
        byte(0x80 | (value & 0x3FU));
    }
}

/// Lower case of a letter outside ASCII, independent of the process's own locale.
char32_t lower_letter(char32_t letter)
{
#ifdef _WIN32
    return letter > 0xFFFF ? letter : static_cast<char32_t>(std::towlower(static_cast<wint_t>(letter)));
#else
    static const locale_t kUnicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return kUnicode == nullptr ? letter
                               : static_cast<char32_t>(towlower_l(static_cast<wint_t>(letter), kUnicode));
#endif
}

constexpr std::uint64_t kEach = 0x0101010101010101; // one in each of eight bytes

/// The first eight bytes of a text, which has as many.
std::uint64_t eight_bytes(const char* text)
{
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, text, sizeof(bytes));
    return bytes;
}

/// Four to seven bytes of a text, some of them twice.
std::uint64_t few_bytes(std::string_view text)
{
    std::uint32_t front = 0;
    std::uint32_t back = 0;
    std::memcpy(&front, text.data(), sizeof(front));
    std::memcpy(&back, text.data() + text.size() - sizeof(back), sizeof(back));
    return (std::uint64_t{front} << 32U) | back;
}

bool is_ascii_byte(char c)
{
    return static_cast<unsigned char>(c) < 0x80;
}

bool is_ascii(std::string_view text)
{
    std::uint64_t all = 0;
    if (text.size() >= sizeof(all)) {
        all = eight_bytes(text.data() + text.size() - sizeof(all));
        for (; text.size() > sizeof(all); text.remove_prefix(sizeof(all))) {
            all |= eight_bytes(text.data());
        }
    } else if (text.size() >= sizeof(std::uint32_t)) {
        all = few_bytes(text);
    } else {
        return std::all_of(text.begin(), text.end(), is_ascii_byte);
    }
    return (all & (kEach * 0x80)) == 0;
}

/// Whether each of eight bytes is a plain character.
bool are_plain(std::uint64_t bytes)
{
    constexpr auto kHigh = kEach * 0x80;
    const auto from_delete = bytes + kEach; // the bit is set from 0x7F on
    return ((bytes | from_delete) & kHigh) == 0 && ((bytes - kEach * 0x20) & ~bytes & kHigh) == 0;
}

char lower_ascii(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

struct Range {
    char32_t first;
    char32_t last;
};

bool is_within(char32_t character, std::span<const Range> ranges)
{
    return std::any_of(ranges.begin(), ranges.end(),
        [&](const Range& range) { return character >= range.first && character <= range.last; });
}

bool is_control(char32_t character)
{
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

bool breaks_line(char32_t character)
{
    constexpr char32_t kNextLine = 0x85;
    return character == '\t' || character == '\n' || character == kNextLine
        || (character >= 0x2028 && character <= 0x2029); // line and paragraph separator
}

/// Whether an invisible character belongs to the character before it.
bool belongs_to(char32_t before, char32_t character)
{
    constexpr char32_t kFirstScript = 0x590; // scripts from Hebrew on, and symbols
    constexpr std::array kJoiners{Range{0x200C, 0x200D}};
    constexpr std::array kSelectors{
        Range{0x034F, 0x034F}, Range{0x180B, 0x180F}, Range{0xFE00, 0xFE0F}, Range{0xE0020, 0xE01EF}};
    if (before < kFirstScript) {
        return false;
    }
    return is_within(character, kSelectors)
        || (is_within(character, kJoiners) && !is_within(before, kJoiners));
}

/// Takes the run of plain characters off the front of a text.
std::string_view take_plain(std::string_view& text)
{
    const auto run = text.substr(0, plain_length(text));
    text.remove_prefix(run.size());
    return run;
}

} // namespace

std::size_t plain_length(std::string_view text)
{
    std::size_t at = 0;
    if (text.size() >= sizeof(std::uint64_t)) {
        const auto last = text.size() - sizeof(std::uint64_t);
        while (at < last && are_plain(eight_bytes(text.data() + at))) {
            at += sizeof(std::uint64_t);
        }
        if (at >= last && are_plain(eight_bytes(text.data() + last))) {
            return text.size();
        }
    } else if (text.size() >= sizeof(std::uint32_t) && are_plain(few_bytes(text))) {
        return text.size();
    }
    while (at < text.size() && text[at] >= 0x20 && text[at] < 0x7F) {
        ++at;
    }
    return at;
}

std::string_view trim(std::string_view text)
{
    const auto first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string lower(std::string_view text)
{
    std::string result;
    if (is_ascii(text)) {
        result = text;
        std::transform(result.begin(), result.end(), result.begin(), lower_ascii);
        return result;
    }
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const auto [value, length] = code_point_at(text, at);
        if (value == kNotACharacter) {
            result.push_back(text[at]);
        } else if (value < 0x80) {
            result.push_back(lower_ascii(text[at]));
        } else {
            append_code_point(result, lower_letter(value));
        }
        at += length;
    }
    return result;
}

bool equal_ignoring_case(std::string_view left, std::string_view right)
{
    const auto size = (std::min)(left.size(), right.size());
    for (std::size_t i = 0; i < size; ++i) {
        if (!is_ascii_byte(left[i]) || !is_ascii_byte(right[i])) {
            return lower(left) == lower(right);
        }
        if (lower_ascii(left[i]) != lower_ascii(right[i])) {
            return false; // up to here, the lower cases are as long as the texts
        }
    }
    return left.size() == right.size();
}

std::size_t character_count(std::string_view text)
{
    std::size_t count = 0;
    for (std::size_t at = 0; at < text.size(); at += code_point_at(text, at).length) {
        ++count;
    }
    return count;
}

std::string_view first_characters(std::string_view text, std::size_t count)
{
    if (text.size() <= count) {
        return text; // a character has at least one byte
    }
    std::size_t at = 0;
    while (count > 0 && at < text.size()) {
        at += code_point_at(text, at).length;
        --count;
    }
    return text.substr(0, at);
}

std::string valid_utf8(std::string_view text)
{
    if (is_ascii(text)) {
        return std::string(text);
    }
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        result.append(take_plain(text));
        if (!text.empty()) {
            const auto [value, length] = code_point_at(text, 0);
            result.append(value == kNotACharacter ? kReplacement : text.substr(0, length));
            text.remove_prefix(length);
        }
    }
    return result;
}

std::string joined(std::initializer_list<std::string_view> pieces)
{
    std::size_t size = 0;
    for (const auto piece : pieces) {
        size += piece.size();
    }
    std::string result;
    result.reserve(size);
    for (const auto piece : pieces) {
        result.append(piece);
    }
    return result;
}

std::string replace_all(std::string_view text, std::string_view what, std::string_view with)
{
    std::string result;
    result.reserve(text.size());
    std::size_t from = 0;
    for (auto at = text.find(what); at != std::string_view::npos; at = text.find(what, from)) {
        result.append(text.substr(from, at - from)).append(with);
        from = at + what.size();
    }
    return result.append(text.substr(from));
}

std::string single_line(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        result.append(take_plain(text));
        if (!text.empty()) {
            const char c = text.front();
            if (c != '\r' && c != '\n' && c != '\0') {
                result.push_back(c);
            }
            text.remove_prefix(1);
        }
    }
    return result;
}

SingleLine::SingleLine(const std::string& text) : given_(text)
{
    if (plain_length(text) < text.size()) {
        changed_ = single_line(text);
    }
}

bool is_invisible(char32_t character)
{
    static constexpr std::array kInvisible{Range{0xAD, 0xAD}, Range{0x034F, 0x034F}, Range{0x061C, 0x061C},
        Range{0x115F, 0x1160}, Range{0x17B4, 0x17B5}, Range{0x180B, 0x180F}, Range{0x200B, 0x200F},
        Range{0x2028, 0x202E}, Range{0x2060, 0x206F}, Range{0x3164, 0x3164}, Range{0xFE00, 0xFE0F},
        Range{0xFEFF, 0xFEFF}, Range{0xFFA0, 0xFFA0}, Range{0xFFF0, 0xFFFB}, Range{0x1BCA0, 0x1BCA3},
        Range{0x1D173, 0x1D17A}, Range{0xE0000, 0xE0FFF}};
    return is_control(character) || is_within(character, kInvisible);
}

bool has_other_blanks(std::string_view text)
{
    static constexpr std::array<std::string_view, 17> kOthers{"\u00a0", "\u1680", "\u2000", "\u2001",
        "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200a", "\u202f",
        "\u205f", "\u2800", "\u3000"};
    return std::any_of(kOthers.begin(), kOthers.end(),
        [&](std::string_view blank) { return text.find(blank) != std::string_view::npos; });
}

std::string visible_line(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    char32_t before = 0; // the last character of the result that is not plain
    while (!text.empty()) {
        if (const auto plain = take_plain(text); !plain.empty()) {
            result.append(plain);
            before = 0;
            continue;
        }
        const auto [value, length] = code_point_at(text, 0);
        if (value == kNotACharacter) {
            result.append(kReplacement);
        } else if (breaks_line(value)) {
            result.push_back(' ');
        } else if (!is_invisible(value) || belongs_to(before, value)) {
            result.append(text.substr(0, length));
            before = value;
        }
        text.remove_prefix(length);
    }
    return result;
}

std::string printable(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    append_printable(result, text);
    return result;
}

void append_printable(std::string& to, std::string_view text)
{
    static constexpr std::string_view kDigits = "0123456789abcdef";
    const auto escape = [&](char c) {
        const auto byte = static_cast<unsigned char>(c);
        to.append("\\x").push_back(kDigits[byte >> 4U]);
        to.push_back(kDigits[byte & 0x0FU]);
    };
    to.append(take_plain(text));
    for (std::size_t at = 0; at < text.size();) {
        const auto [value, length] = code_point_at(text, at);
        if (value == '\n' || value == '\r' || value == '\t') {
            to.append(value == '\n' ? "\\n" : value == '\r' ? "\\r" : "\\t");
        } else if (value == kNotACharacter || is_invisible(value)) {
            std::for_each_n(text.begin() + static_cast<std::ptrdiff_t>(at), length, escape);
        } else {
            to.append(text.substr(at, length));
        }
        at += length;
    }
}

double leading_number(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return 0;
    }
    text.remove_prefix(first);
    if (text.front() == '+') {
        text.remove_prefix(1);
    }
    const auto digit = text.substr(0, 1) == "-" ? text.substr(1) : text;
    const bool number =
        !digit.empty() && (digit.front() == '.' || (digit.front() >= '0' && digit.front() <= '9'));
    double value = 0;
    if (number
        && std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc::invalid_argument) {
        return 0;
    }
    return value;
}

std::string decimal(double number)
{
    if (!std::isfinite(number)) {
        return "0";
    }
    constexpr double kLargest = 9007199254740992; // up to it a double holds every whole number
    if (std::abs(number) < kLargest && number == std::trunc(number)) {
        return std::to_string(static_cast<std::int64_t>(number)); // far cheaper
    }
    // The longest plain decimal of a double has 309 digits before the point.
    char buffer[400];
    const auto end = std::to_chars(std::begin(buffer), std::end(buffer), number, std::chars_format::fixed);
    return {std::begin(buffer), end.ptr};
}

} // namespace qz
