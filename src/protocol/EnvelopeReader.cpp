#include "protocol/EnvelopeReader.h"

#include "base/Guarded.h"
#include "base/Numbers.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

#include <cstdint>
#include <limits>
#include <string_view>

namespace qz::protocol {

namespace {

/// Characters between the number's end marker and the first word; composed messages fill them with CR LF.
constexpr std::size_t kFillers = 2;

} // namespace

net::Envelope EnvelopeReader::CheckMsgIncomingRules(const std::string& data)
{
    return guarded(journal_, "CheckMsgIncomingRules", no_address, net::Envelope{}, [&] {
        if (data.size() > (std::numeric_limits<std::int16_t>::max)()) { // positions are 16 bits wide
            to_integer<std::int16_t>(static_cast<double>(character_count(data)));
        }
        return read(data);
    });
}

net::Envelope EnvelopeReader::read(const std::string& data) const
{
    const auto& keywords = helpers::protocol_keywords();
    std::string_view text = data;
    const auto start = text.find(keywords.EnvelopeStart);
    const auto end = start == std::string_view::npos ? start : text.find(keywords.EnvelopeEnd, start);
    if (end == std::string_view::npos) {
        return {};
    }
    text = text.substr(start, end - start);
    const auto number_mark = text.find(keywords.NumberStart);
    const auto number_end =
        number_mark == std::string_view::npos ? number_mark : text.find(keywords.NumberEnd, number_mark);
    if (number_end == std::string_view::npos) {
        return {};
    }

    net::Envelope envelope;
    const auto number_start = number_mark + keywords.NumberStart.size();
    envelope.number = leading_number(text.substr(number_start, number_end - number_start));
    text.remove_prefix(number_end + keywords.NumberEnd.size());
    text.remove_prefix(first_characters(text, kFillers).size());
    const auto blank = text.find(' ');
    envelope.first_word = text.substr(0, blank);
    envelope.rest = blank == std::string_view::npos ? std::string_view{} : text.substr(blank + 1);
    envelope.my_ip = parser_.value(text, "myIP");
    envelope.body = replace_all(text, "myIP=" + envelope.my_ip, "");
    return envelope;
}

} // namespace qz::protocol
