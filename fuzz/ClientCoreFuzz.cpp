// Whatever a server sends, before the logon and after it, a client stays within its bounds and keeps its
// word: it hears the same in whatever pieces the bytes come.
#include "Fuzzing.h"

#include "client/ClientCore.h"
#include "platform/sodium/SodiumCrypto.h"

#include <chrono>
#include <string>

namespace {

using qz::fuzz::promise;
using namespace qz::client;

struct CountingEvents : ClientEvents {
    virtual ~CountingEvents() = default;
    void connected() override { add("connected"); }
    void logged_on() override { add("logged on"); }
    void refused(const std::vector<std::string>& reasons) override
    {
        promise(reasons.size() <= 8);
        add("refused");
    }
    void incoming(const Incoming& incoming) override { add(std::to_string(incoming.index())); }
    void disconnected(const Disconnected& disconnected) override { add(disconnected.last_notice); }
    void add(const std::string& text) { heard.append(text).append("\n"); }

    std::string heard;
};

std::string heard(std::string_view stream, std::size_t piece, bool is_logged_on)
{
    static qz::platform::SodiumCrypto crypto;
    CountingEvents events;
    ClientCore core({"ann", "secret"}, crypto, events);
    TimePoint now{std::chrono::hours(1)};
    core.start(now);
    core.opened("192.0.2.10", now);
    if (is_logged_on) {
        core.received("\x02\x0E"
                      "1\x0F\r\nsession sessionidvalue=42\x03\x02\x0E"
                      "2\x0F\r\nlogon answer=accepted\x03",
            now);
        promise(core.is_logged_on());
    }
    for (std::size_t at = 0; at < stream.size(); at += piece) {
        core.received(stream.substr(at, piece), now);
        promise(core.output().size() <= Outbox::kMaxBytes);
        promise(core.unconfirmed() <= Confirmations::kMost);
    }
    if (const auto deadline = core.next_deadline()) {
        core.tick(*deadline);
        // A program that waits for deadlines does not spin; only the wait for a connection may be none.
        promise(core.attempt() == 0 || core.next_deadline() != deadline);
    }
    return events.heard;
}

} // namespace

int fuzz_client_core(const std::uint8_t* data, std::size_t size)
{
    // The first byte chooses the pieces, and whether the client has logged on before.
    if (size == 0) {
        return 0;
    }
    const auto stream = qz::fuzz::text_of(data + 1, size - 1);
    const bool is_logged_on = data[0] % 2 == 0;
    promise(heard(stream, stream.size() + 1, is_logged_on) == heard(stream, 1U + data[0], is_logged_on));
    return 0;
}
