// A server played by hand against a client core: what either side says is written as keyword, blank, body.
#pragma once

#include "client/ClientCore.h"
#include "platform/sodium/SodiumCrypto.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qz::test {

/// Draws 0, 1, 2 and so on, so that message numbers are 1, 2, 3.
class CountingCrypto : public platform::SodiumCrypto {
public:
    std::uint64_t random_below(std::uint64_t limit) override { return counter_++ % limit; }

private:
    std::uint64_t counter_ = 0;
};

/// One line that shows every member.
std::string show(const client::Incoming& incoming);

/// Every event as one line.
class RecordingEvents : public client::ClientEvents {
public:
    virtual ~RecordingEvents() = default;
    void connected() override { lines.emplace_back("connected"); }
    void logged_on() override { lines.emplace_back("logged on"); }
    void refused(const std::vector<std::string>& reasons) override;
    void incoming(const client::Incoming& incoming) override { lines.push_back(show(incoming)); }
    void disconnected(const client::Disconnected& disconnected) override;
    void settled(client::MessageId id) override { settled_messages.push_back(id); }

    std::vector<std::string> take() { return std::exchange(lines, {}); }

    std::vector<std::string> lines;
    client::Disconnected last_end;
    std::vector<client::MessageId> settled_messages;
};

/// The text in its envelope, in as many frames as the server makes of it.
std::string from_server(std::string_view text, double number = 7);

/// What the client has said, in order, without envelopes and frames; "!" and the bytes for what is no frame.
std::vector<std::string> said(std::string_view bytes);

/// A credential field as the server reads it from a client at this address.
std::string read_credential(std::string_view field, std::string_view address);

class Conversation {
public:
    explicit Conversation(client::Account account = {"ann", "secret"}, std::string address = "10.0.0.7");

    /// Starts, opens and logs on with the session "42"; forgets what was said and heard.
    void log_on();
    void open();
    void server(std::string_view text, double number = 7) { core.received(from_server(text, number), now); }
    /// What the client has said since it was last asked.
    std::vector<std::string> client();
    void pass(std::chrono::milliseconds time);

    CountingCrypto crypto;
    RecordingEvents events;
    client::ClientCore core;
    std::string address;
    client::TimePoint now{std::chrono::hours(1)};
};

} // namespace qz::test
