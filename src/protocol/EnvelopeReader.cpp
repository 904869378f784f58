#include "protocol/EnvelopeReader.h"

#include "base/EngineError.h"
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

/// Where the marker stands in the text.
/// @throws EngineError 5 when it is missing.
std::size_t position(std::string_view text, std::string_view marker, std::size_t from = 0)
{
    const auto at = text.find(marker, from);
    if (at == std::string_view::npos) {
        throw runtime_error(RuntimeError::InvalidProcedureCall);
    }
    return at;
}

} // namespace

net::Envelope EnvelopeReader::CheckMsgIncomingRules(const std::string& data) const
{
    if (data.size() > (std::numeric_limits<std::int16_t>::max)()) { // positions are 16 bits wide
        to_integer<std::int16_t>(static_cast<double>(character_count(data)));
    }
    const auto& keywords = helpers::protocol_keywords();
    std::string_view text = data;
    const auto start = position(text, keywords.EnvelopeStart);
    text = text.substr(start, position(text, keywords.EnvelopeEnd, start) - start);
    const auto number_start = position(text, keywords.NumberStart) + keywords.NumberStart.size();
    const auto number_end = position(text, keywords.NumberEnd, number_start);

    net::Envelope envelope;
    envelope.number = leading_number(text.substr(number_start, number_end - number_start));
    text.remove_prefix(number_end + keywords.NumberEnd.size());
    text.remove_prefix(first_characters(text, kFillers).size());
    const auto blank = position(text, " ");
    envelope.first_word = text.substr(0, blank);
    envelope.rest = text.substr(blank + 1);
    envelope.my_ip = parser_.value(text, "myIP");
    envelope.body = replace_all(text, "myIP=" + envelope.my_ip, "");
    return envelope;
}

} // namespace qz::protocol
