// The other end of a real connection, driven by hand on the test's own thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qz::test {

/// Failures of the system's calls end the test with an exception. Reading and writing never wait.
class LoopbackPeer {
public:
    /// Connects to 127.0.0.1, or ::1. A receive buffer of 0 bytes means the system's own choice.
    explicit LoopbackPeer(std::uint16_t port, bool ipv6 = false, int receive_buffer = 0);
    LoopbackPeer(LoopbackPeer&& other) noexcept;
    LoopbackPeer(const LoopbackPeer&) = delete;
    LoopbackPeer& operator=(const LoopbackPeer&) = delete;
    LoopbackPeer& operator=(LoopbackPeer&&) = delete;
    ~LoopbackPeer();

    /// Every byte must fit into the system's buffer.
    void send(std::string_view bytes) const;
    /// As much as fits.
    std::size_t send_some(std::string_view bytes) const;
    /// What has arrived and was not taken yet, at most `most` bytes of it.
    std::string take(std::size_t most = SIZE_MAX);
    std::size_t available() const;
    /// Segments with data that have arrived so far.
    unsigned segments() const;
    /// The server's end has come (found out by `take`).
    bool ended() const { return ended_; }
    /// The end came as a reset.
    bool was_reset() const { return was_reset_; }

    void finish_sending() const;
    void close();
    /// Closes so that the other end gets a reset.
    void reset();

private:
    int descriptor_;
    bool ended_ = false;
    bool was_reset_ = false;
};

} // namespace qz::test
