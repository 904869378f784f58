// What the two sides of a direct connection say to each other, and where the bytes of the file come from and
// go to. Without sockets and without files.
#pragma once

#include "client/transfer/Channel.h"
#include "client/transfer/Outcome.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace qz::client::transfer {

/// The file that is sent.
class FileSource {
public:
    virtual ~FileSource() = default;
    virtual std::uint64_t size() const = 0;
    /// Fills the buffer from this byte of the file on.
    /// @return false when it cannot be filled.
    virtual bool read(std::uint64_t at, std::span<char> buffer) = 0;
    /// False when somebody wrote to the file since it was opened.
    virtual bool is_unchanged() const = 0;
};

/// The file that is received. Nothing stands for success.
class FileSink {
public:
    virtual ~FileSink() = default;
    /// Bytes that are there, also those of earlier attempts.
    virtual std::uint64_t size() const = 0;
    virtual bool read(std::uint64_t at, std::span<char> buffer) = 0;
    virtual std::optional<Outcome> append(std::string_view bytes) = 0;
    /// Back to no bytes at all.
    virtual std::optional<Outcome> restart() = 0;
    /// The file is complete: makes it safe and gives it its name.
    virtual std::optional<Outcome> commit() = 0;
    /// Nothing of it is of use.
    virtual void discard() = 0;
};

/// One side of one connection. It speaks through the channel that it was made with.
class Conversation {
public:
    virtual ~Conversation() = default;
    /// The channel is open. Called once, before all that follows.
    virtual void begin() = 0;
    virtual void take(const Record& record) = 0;
    /// Whether there is something to do that waits for nobody; `work` does a small piece of it.
    virtual bool has_work() const = 0;
    virtual void work() = 0;
    /// Ends it, and tells the other side.
    virtual void end(const Ending& ending) = 0;
    virtual const std::optional<Ending>& ending() const = 0;
    /// Bytes of the file that have moved, with those of earlier connections.
    virtual std::uint64_t done() const = 0;
    /// How long nothing may move before the connection counts as broken.
    virtual std::chrono::seconds patience() const = 0;
};

inline constexpr std::chrono::seconds kPatience{30};
inline constexpr std::chrono::seconds kStoringPatience{180}; // a slow disk takes its time
/// What is hashed in one piece of work.
inline constexpr std::size_t kHashPiece = std::size_t{1024} * 1024;
/// Pieces after which the other side hears that one is still there.
inline constexpr std::uint64_t kPiecesPerSign = 64;

} // namespace qz::client::transfer
