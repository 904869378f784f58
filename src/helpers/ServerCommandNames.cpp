#include "helpers/ServerCommandNames.h"

#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::helpers {

namespace {

void append_harmless(std::string& result, std::string_view text)
{
    const auto blank_substitute = protocol_keywords().BlankSubstitute.front();
    while (!text.empty()) {
        const auto plain = plain_length(text); // mostly all up to the next blank substitute
        result.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) {
            return;
        }
        const char c = text.front();
        const bool control = static_cast<unsigned char>(c) < 0x20;
        if (control && c != '\t' && c != '\r' && c != '\n' && c != blank_substitute) {
            result.append("\xEF\xBF\xBD"); // U+FFFD
        } else {
            result.push_back(c);
        }
        text.remove_prefix(1);
    }
}

} // namespace

std::string ServerCommandNames::compose(
    std::string_view keyword, std::string_view message, double number) const
{
    const auto& words = protocol_keywords();
    std::string result;
    result.reserve(keyword.size() + message.size() + 32);
    result.append(words.EnvelopeStart).append(words.NumberStart).append(decimal(number));
    result.append(words.NumberEnd).append("\r\n"); // two filler characters, which the receiver steps over
    append_harmless(result, keyword);
    result.push_back(' ');
    append_harmless(result, message);
    return result.append(words.EnvelopeEnd);
}

} // namespace qz::helpers
