// What an envelope gives are pieces of it, and what the server composes is read back.
#include "Fuzzing.h"

#include "base/Text.h"
#include "helpers/ServerCommandNames.h"
#include "platform/sodium/SodiumCrypto.h"
#include "protocol/EnvelopeReader.h"

#include <cmath>
#include <string>

namespace {

class CountingJournal final : public qz::Journal {
public:
    void Log(const std::string&, const std::string&, const std::string&) override { std::abort(); }
    void log_own(const std::string&) override { std::abort(); }
    void ReportError(std::string_view, const qz::EngineError& error, const std::string&) override
    {
        overflows += error.number() == 6 ? 1 : 0;
        others += error.number() == 6 ? 0 : 1;
    }
    void raise_error(std::string_view, const qz::EngineError&, const std::string&) override { std::abort(); }

    int overflows = 0;
    int others = 0;
};

} // namespace

int fuzz_envelope_reader(const std::uint8_t* data, std::size_t size)
{
    using qz::fuzz::promise;
    qz::platform::SodiumCrypto crypto;
    const qz::helpers::MessageParser parser(crypto);
    CountingJournal journal;
    qz::protocol::EnvelopeReader reader(parser, journal);
    const std::string text(qz::fuzz::text_of(data, size));
    const auto envelope = reader.CheckMsgIncomingRules(text);
    promise(journal.others == 0 && (journal.overflows == 1) == (qz::character_count(text) > 32767));
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
