#include "helpers/MessageParser.h"

#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace qz::helpers {

namespace {

constexpr auto kNone = std::string_view::npos;
constexpr std::string_view kLastKey = "msg"; // its value runs to the end

/// The keys of the protocol, in byte order.
constexpr std::array<std::string_view, 41> kKeys{"action", "answer", "buddy", "clientversion", "comment",
    "email", "encryptionkey", "expiration", "expirationend", "expirationtime", "feedback", "filetransfer",
    "firstname", "group", "guests", "imclientinuse", "key", "lastname", "message", "msg", "msgid", "myIP",
    "newbuddy", "password", "receiptrequested", "received", "receivedtime", "remotecommand", "remoteip",
    "roomname", "rooms", "roomsender", "screenname", "screenname2delete", "screennamefrom", "screennameto",
    "screennametofind", "sessionidvalue", "status", "urlLastClientVersionAvailable", "version"};
constexpr std::size_t kLongestKey = 29;

static_assert(std::is_sorted(kKeys.begin(), kKeys.end()));
static_assert(std::all_of(kKeys.begin(), kKeys.end(), [](auto key) { return key.size() <= kLongestKey; }));

bool is_key(std::string_view word)
{
    return std::binary_search(kKeys.begin(), kKeys.end(), word);
}

/// The word before the '=' that stands at most `longest` bytes behind `at`; empty when there is none.
std::string_view word_before_equals(std::string_view text, std::size_t at, std::size_t longest)
{
    const auto window = text.substr(at, longest + 1);
    // Not find_first_of, which searches the set anew for each byte of the text.
    const auto word = window.substr(0, window.find('='));
    return word.size() < window.size() && word.find(' ') == kNone ? word : std::string_view{};
}

std::string_view without_blanks_at_end(std::string_view text)
{
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

} // namespace

std::string MessageParser::field(std::string_view text, std::size_t position) const
{
    for (; position > 1; --position) {
        const auto blank = text.find(' ');
        if (blank == kNone) {
            return {};
        }
        text.remove_prefix(blank + 1);
    }
    return position == 0 ? std::string{} : std::string(text.substr(0, text.find(' ')));
}

std::string MessageParser::text_after_keyword(std::string_view text, std::string_view keyword) const
{
    const auto end = (std::min)(text.find(' '), text.size());
    if (text.substr(0, end) != keyword) {
        return std::string(text);
    }
    return std::string(text.substr((std::min)(end + 1, text.size())));
}

std::string MessageParser::value(std::string_view text, std::string_view key) const
{
    if (key.empty()) {
        return {};
    }
    const auto longest = (std::max)(kLongestKey, key.size());
    auto value_at = kNone;
    for (std::size_t at = 0;;) {
        const auto word = word_before_equals(text, at, longest);
        if (value_at != kNone && is_key(word)) {
            return std::string(without_blanks_at_end(text.substr(value_at, at - 1 - value_at)));
        }
        if (value_at == kNone && word == key) {
            value_at = at + word.size() + 1;
        }
        if (word == kLastKey) {
            return value_at == kNone ? std::string{} : std::string(text.substr(value_at));
        }
        const auto blank = text.find(' ', at);
        if (blank == kNone) {
            break;
        }
        at = blank + 1;
    }
    return value_at == kNone ? std::string{} : std::string(without_blanks_at_end(text.substr(value_at)));
}

std::string MessageParser::CleanText(std::string_view text) const
{
    return replace_all(text, "'", "''");
}

double MessageParser::fresh_number()
{
    constexpr auto kLargest = (std::uint64_t{1} << 53U) - 1;
    return static_cast<double>(1 + crypto_.random_below(kLargest));
}

bool read_boolean(std::string_view text)
{
    return equal_ignoring_case(text, protocol_keywords().TrueKeyword) || equal_ignoring_case(text, "yes")
        || text == "1" || text == "-1";
}

const std::string& boolean_text(bool value)
{
    return value ? protocol_keywords().TrueKeyword : protocol_keywords().FalseKeyword;
}

} // namespace qz::helpers
