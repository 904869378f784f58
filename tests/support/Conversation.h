// Whole dialogues between clients and one engine, written as tables, over sockets in memory and over real
// ones alike.
#pragma once

#include "server/Engine.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qz::test {

/// An engine with clients, numbered by the test in the order in which they connect, from 0 on.
class Stage {
public:
    Stage() = default;
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    virtual ~Stage() = default;

    virtual server::Engine& engine() = 0;
    virtual void connect() = 0;
    virtual void send(std::size_t client, std::string_view bytes) = 0;
    /// Lets things happen until the client has received enough, or the server has ended its connection.
    /// @return the bytes that came since the last call.
    virtual std::string receive(
        std::size_t client, const std::function<bool(const std::string&)>& enough) = 0;
    virtual bool ended(std::size_t client) = 0;
    /// The number of the client's socket.
    virtual std::int16_t socket(std::size_t client) = 0;
};

std::unique_ptr<Stage> memory_stage();
std::unique_ptr<Stage> loopback_stage();

/// One step, as text. "0" to "9" at its beginning is the client:
///   "0 connects"             and gets its session offer, whose id is {session} of this client from now on
///   "0 is ann"               the client's connection record is filled
///   "0> echo a=b"            the client sends an envelope
///   "0[2,1]> echo a=b"       it sends the envelope in frames, in this order
///   "0! bytes"               it sends bytes as they stand
///   "0< echo "               the client receives this message, and none before it
///   "0 ends"                 the server ended the connection, after what was received
using Dialogue = std::vector<std::string>;

/// Plays it; failures are failures of the test. At the end no client must have got anything more.
void play(Stage& stage, const Dialogue& dialogue);

/// An envelope as a client composes it.
std::string envelope(std::string_view text, int number = 1);
/// The envelope in so many frames of one message.
std::vector<std::string> frames(const std::string& envelope, int count, int message = 1);
/// Keyword and body of every message in the bytes that a server sent.
std::vector<std::string> messages_in(std::string_view bytes);

} // namespace qz::test
