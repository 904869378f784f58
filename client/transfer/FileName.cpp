#include "client/transfer/FileName.h"

#include "base/Text.h"

#include <algorithm>
#include <array>

namespace qz::client::transfer {

namespace {

constexpr std::string_view kForbidden = "<>:\"|?*"; // on some system or other
constexpr std::size_t kMaxExtension = 16;

/// Whether the character that begins here must not stand in a name: control characters (also C1) and those
/// that turn the direction of writing, with which "exe.txt" can look like "txt.exe".
bool is_harmful(std::string_view character)
{
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) {
        return first < 0x20 || first == 0x7F || kForbidden.find(character[0]) != std::string_view::npos;
    }
    const auto second = static_cast<unsigned char>(character[1]);
    if (character.size() == 2) {
        return (first == 0xC2 && second < 0xA0) || character == "\u061C";
    }
    return (character >= "\u200B" && character <= "\u200F")
        || (character >= "\u2028" && character <= "\u202E")
        || (character >= "\u2060" && character <= "\u206F") || character == "\uFEFF";
}

std::string without_harmful(std::string_view name)
{
    std::string result;
    while (!name.empty()) {
        const auto character = first_characters(name, 1);
        name.remove_prefix(character.size());
        result += is_harmful(character) ? "_" : std::string(character);
    }
    return result;
}

bool names_device(std::string_view name)
{
    static constexpr std::array<std::string_view, 6> kDevices{
        "con", "prn", "aux", "nul", "conin$", "conout$"};
    const auto stem = lower(trim(name.substr(0, name.find('.'))));
    const bool is_port = stem.size() == 4 && (stem.starts_with("com") || stem.starts_with("lpt"))
        && stem[3] >= '0' && stem[3] <= '9';
    return is_port || std::find(kDevices.begin(), kDevices.end(), stem) != kDevices.end();
}

/// Where the extension begins; the end when there is none.
std::size_t extension_at(std::string_view name)
{
    const auto dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 || name.size() - dot > kMaxExtension ? name.size() : dot;
}

/// Not more than kMaxNameBytes, extension included.
std::string shortened(const std::string& name)
{
    const auto extension = name.substr(extension_at(name));
    std::string stem;
    std::string_view rest(name);
    while (!rest.empty()) {
        const auto character = first_characters(rest, 1);
        if (stem.size() + character.size() + extension.size() > kMaxNameBytes) {
            break;
        }
        stem += character;
        rest.remove_prefix(character.size());
    }
    return stem + extension;
}

} // namespace

std::string safe_file_name(std::string_view name)
{
    const auto separator = name.find_last_of("/\\");
    const auto last = separator == std::string_view::npos ? name : name.substr(separator + 1);
    auto result = without_harmful(valid_utf8(last));
    const auto first = result.find_first_not_of(". ");
    if (first == std::string::npos) {
        return {};
    }
    result = result.substr(first, result.find_last_not_of(". ") + 1 - first);
    if (result.front() == '-' || result.front() == '~') {
        result.front() = '_';
    }
    if (names_device(result)) {
        result.insert(0, "_");
    }
    return result.size() > kMaxNameBytes ? safe_file_name(shortened(result)) : result;
}

std::string numbered_file_name(const std::string& name, int number)
{
    if (number <= 1) {
        return name;
    }
    const auto at = extension_at(name);
    return name.substr(0, at) + " (" + std::to_string(number) + ")" + name.substr(at);
}

} // namespace qz::client::transfer
