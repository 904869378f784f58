// One client connection: bytes in, units out; texts in, bytes out; and its ways to end.
#pragma once

#include "helpers/UnitCutter.h"
#include "platform/asio/AsioClientSockets.h"
#include "platform/asio/AsioLoopCore.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace qz::platform {

class AsioConnection;

/// What a connection asks of its pool, which outlives it or abandons it.
class ConnectionOwner {
public:
    virtual const ConnectionLimits& limits() const = 0;
    /// A buffer shared by all connections, free until it is given back.
    virtual std::span<char> borrow_buffer() = 0;
    virtual void return_buffer() = 0;
    /// To be flushed in the Output phase.
    virtual void has_output(AsioConnection& connection) = 0;
    /// Its check is to be called from now on, until it says that nothing is pending.
    virtual void has_deadline(AsioConnection& connection) = 0;
    virtual void unit_arrived(std::int16_t socket, const std::string& unit) = 0;
    virtual void lost(std::int16_t socket) = 0;
    /// The descriptor is closed; the number is free.
    virtual void gone(std::int16_t socket) = 0;

protected:
    ~ConnectionOwner() = default;
};

/// Shared by its pool and the waits that have not come back. An idle connection owns no buffer.
class AsioConnection : public std::enable_shared_from_this<AsioConnection> {
public:
    AsioConnection(ConnectionOwner& owner, AsioLoopCore& loop, TcpSocket socket, std::int16_t number);

    void start();
    bool open() const { return phase_ == Phase::Open; }
    /// A unit of it is being handled.
    bool delivering() const { return delivering_; }
    void send(std::string_view text);
    void set_reading(bool reading);
    /// Writes what is pending, waits a moment for the peer to close too, and closes.
    void end();
    /// Writes as much of the pending output as the peer takes.
    void flush();
    /// Ends the connection when one of its limits of time has passed.
    /// @return false when no limit runs any more.
    bool check(SteadyClock::time_point now);
    /// Breaks the connection: what is pending is not written, and its owner hears of the loss.
    void drop();
    std::size_t unsent() const { return output_.size() - written_; }
    /// Closes at once without a word to its owner, whom it never calls again.
    void abandon();

    bool heard_in_turn = false;       // of the owner
    bool queued_for_flush = false;    // of the owner
    bool queued_for_deadline = false; // of the owner

private:
    enum class Phase : std::uint8_t {
        Open,
        Lost,      // the peer is gone or was given up; the owner is still to hear of it
        Ending,    // writes what is pending
        Lingering, // everything is written; waits for the peer's end
        Closed,
    };

    void wait_readable();
    void wait_writable();
    void read();
    void go_on_reading();
    void deliver(std::string_view bytes);
    void write();
    void written_all();
    void lose();
    void tell_lost();
    void finish();
    void close_now();
    void close_socket();
    void set_deadline(std::chrono::milliseconds time);

    ConnectionOwner& owner_;
    AsioLoopCore& loop_;
    TcpSocket socket_;
    helpers::UnitCutter cutter_;
    std::string held_; // bytes that came when it was not to be read any more: one buffer's worth at most
    std::string output_;
    std::size_t written_ = 0; // bytes of output_ that are gone
    SteadyClock::time_point deadline_ = SteadyClock::time_point::max();
    std::int16_t number_;
    Phase phase_ = Phase::Open;
    bool reading_ = true;
    bool delivering_ = false;
    bool peer_ended_ = false;
    bool waits_readable_ = false;
    bool waits_writable_ = false;
};

} // namespace qz::platform
