// What an envelope gives are pieces of it, and what the server composes is read back.
#include "Fuzzing.h"

#include "base/EngineError.h"
#include "base/Text.h"
#include "helpers/ServerCommandNames.h"
#include "platform/sodium/SodiumCrypto.h"
#include "protocol/EnvelopeReader.h"

#include <cmath>
#include <string>

int fuzz_envelope_reader(const std::uint8_t* data, std::size_t size)
{
    using qz::fuzz::promise;
    qz::platform::SodiumCrypto crypto;
    const qz::helpers::MessageParser parser(crypto);
    const qz::protocol::EnvelopeReader reader(parser);
    const std::string text(qz::fuzz::text_of(data, size));
    const bool too_long = qz::character_count(text) > 32767;
    qz::net::Envelope envelope;
    try {
        envelope = reader.CheckMsgIncomingRules(text);
        promise(!too_long && text.find(' ') != std::string::npos);
    } catch (const qz::EngineError& error) {
        promise(error.number() == (too_long ? 6 : 5));
    }
    promise(std::isfinite(envelope.number));
    promise(envelope.body.size() <= text.size());
    promise(envelope.first_word.find(' ') == std::string::npos);
    for (const auto* part : {&envelope.first_word, &envelope.rest, &envelope.my_ip}) {
        promise(text.find(*part) != std::string::npos && part->find('\x03') == std::string::npos);
    }

    const auto body = text.substr(0, 30000);
    const auto composed = qz::helpers::server_command_names().compose("notice", body, 7);
    const auto again = reader.CheckMsgIncomingRules(composed);
    promise(again.number == 7 && again.first_word == "notice");
    promise(qz::character_count(again.rest) == qz::character_count(body));
    return 0;
}
