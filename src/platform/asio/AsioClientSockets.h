// The numbered pool of client sockets on the event loop.
#pragma once

#include "platform/Sockets.h"

#include <chrono>
#include <cstddef>
#include <memory>

namespace qz::platform {

class AsioEventLoop;

/// When a connection is given up, and how long a close may take.
struct ConnectionLimits {
    std::size_t unsent = std::size_t{1} << 20U; // bytes that the peer has not taken
    std::chrono::milliseconds stalled{30'000};  // without taking any of them
    std::chrono::milliseconds flush{5'000};     // to take what is pending at a close
    std::chrono::milliseconds linger{1'000};    // to close its own end after that
};

/// Output leaves in the Output phase of the turn, one write for each socket; what the peer does not take
/// waits. A connection that breaks a limit, or sends a unit that is too large, is closed and its closed event
/// raised as an event of its own. The state of a number is kSocketClosing from then on, or from close(),
/// until its connection is gone. The limits of time are kept to about a second. The pool must be destroyed on
/// the loop's thread, before the loop, and not from inside one of its events.
class AsioClientSockets : public ClientSockets {
public:
    AsioClientSockets(AsioEventLoop& loop, ClientSocketEvents& events, const ConnectionLimits& limits = {});
    ~AsioClientSockets() override;

    void load(std::int16_t count, bool preserve) override;
    std::int16_t count() const override;
    std::int16_t state(std::int16_t socket) const override;
    /// @throws EngineError when the number is not a closed socket of the pool or the request is gone.
    std::string request_address(std::int32_t request) const override;
    void accept(std::int16_t socket, std::int32_t request) override;
    std::string remote_address(std::int16_t socket) const override;
    std::string local_address() const override;
    void send(std::int16_t socket, std::string_view text) override;
    std::size_t unsent(std::int16_t socket) const override;
    void set_reading(std::int16_t socket, bool reading) override;
    void close(std::int16_t socket) override;
    void drop_turn() override;

private:
    class Pool;
    std::shared_ptr<Pool> pool_; // shared only with its own timer
};

} // namespace qz::platform
