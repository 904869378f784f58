// The bytes of one direct connection, without any socket: greetings in the clear, then sealed records.
#pragma once

#include "client/transfer/TransferKeys.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace qz::client::transfer {

enum class RecordType : std::uint8_t {
    Resume = 1,  // receiver: number of bytes it has (8), their hash (32)
    Start = 2,   // sender: number of the first byte that follows (8)
    Data = 3,    // sender: 1 to kMaxData bytes
    End = 4,     // sender: hash of the whole file (32)
    Stored = 5,  // receiver: the file is complete, right, and on the disk
    Cancel = 6,  // both: the reason's number (1)
    Working = 7, // both: still there
};
struct Record {
    RecordType type = RecordType::Working;
    std::string_view body;
};

/// The greeting as it travels: mark and version, the number of the connection, the token, the stream's
/// header.
struct Greeting {
    std::uint32_t attempt = 0;
    std::string_view token;
    std::string_view header;
};
inline constexpr std::string_view kGreetingMark = "VELTOFT1";
inline constexpr std::size_t kGreetingSize =
    kGreetingMark.size() + 4 + std::tuple_size_v<platform::Key> + platform::kStreamHeaderSize;
/// Nothing when the bytes are none. Looks at no more than kGreetingSize bytes.
std::optional<Greeting> read_greeting(std::string_view bytes);

/// Whether a record of this type may have a body of this size.
bool is_possible(RecordType type, std::size_t body_size);

class Channel {
public:
    static constexpr std::size_t kMaxData = std::size_t{64} * 1024;

    /// For the side that connects.
    static Channel connecting(const TransferKeys& keys, bool sender_connects, std::uint32_t attempt);
    /// For the side that listens.
    /// @param least_attempt  connections with a smaller number are old ones, or repeated by somebody.
    static Channel listening(const TransferKeys& keys, bool sender_connects, std::uint32_t least_attempt);

    enum class State { Greeting, Open, Failed };
    State state() const { return state_; }
    std::uint32_t attempt() const { return attempt_; } // known when open

    /// Takes what came, and hands out one record after the other until the callback returns false; the rest
    /// is kept for the next call. A failure is final.
    using Take = std::function<bool(const Record&)>;
    void received(std::string_view bytes, const Take& take);

    /// Only when open.
    void send(RecordType type, std::string_view body);

    /// What is to be sent now. Valid until the next call.
    std::string_view output() const { return std::string_view(output_).substr(sent_); }
    void consume_output(std::size_t bytes);

private:
    Channel(const TransferKeys& keys, bool connects, bool sender_connects, std::uint32_t attempt);
    void prepare();
    void greet();
    bool take_greeting();
    bool take_record(const Take& take);

    TransferKeys keys_;
    bool connects_;
    bool sender_connects_;
    std::uint32_t attempt_;
    State state_ = State::Greeting;
    TransferKeys::ForConnection secrets_;
    std::optional<platform::SealingStream> sealing_;
    std::optional<platform::OpeningStream> opening_;
    std::string input_;
    std::size_t read_ = 0; // of the input
    std::string output_;
    std::size_t sent_ = 0; // of the output
    std::string plain_;    // kept for its memory
};

} // namespace qz::client::transfer
