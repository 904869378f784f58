// A client with a TCP socket: drives a ClientCore from the program's own event loop, or from a small one of
// its own.
#pragma once

#include "base/Clock.h"
#include "client/ClientCore.h"
#include "client/Descriptor.h"
#include "client/EventSource.h"
#include "client/Resolver.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qz::client {

/// Nothing here waits, except run_until. After every call the program asks again for the descriptor and what
/// to wait for: a name is searched on one descriptor, each address is tried on another.
class Connection {
public:
    /// How long one address of the host is tried.
    static constexpr std::chrono::seconds kAddressTime{10};

    /// The references outlive the connection.
    Connection(Endpoint endpoint, Account account, helpers::Crypto& crypto, const Clock& clock,
        ClientEvents& events);

    void start();
    void stop();
    /// Requests are handed to the core; they go out with the next on_ready(false, true).
    ClientCore& core() { return core_; }

    /// What to watch; -1 when there is nothing, as between two attempts.
    int descriptor() const;
    bool wants_read() const;
    bool wants_write() const;
    /// To be called when the descriptor is readable or writable, and with two times false when the deadline
    /// has come. Saying too much does no harm.
    void on_ready(bool readable, bool writable);
    std::optional<TimePoint> next_deadline() const;

    /// Runs until the condition holds, for programs without a loop of their own.
    /// @param companion  shares the loop; nothing when there is none.
    /// @return false when the time was over before, or the client has stopped.
    bool run_until(const std::function<bool()>& condition, std::chrono::milliseconds longest,
        EventSource* companion = nullptr);

private:
    void wait(std::chrono::milliseconds longest, EventSource* companion);

    enum class Phase { Idle, Resolving, Connecting, Open };

    void follow_core();
    void resolve();
    void take_addresses();
    void connect_next();
    void finish_connect();
    void open();
    void read();
    void write();
    void fail(const std::string& why);
    bool is_current() const { return core_.attempt() == attempt_; }

    Endpoint endpoint_;
    const Clock& clock_;
    ClientCore core_;

    Phase phase_ = Phase::Idle;
    std::uint64_t attempt_ = 0; // of the core, to which all below belongs
    std::unique_ptr<Resolver> resolver_;
    std::vector<SocketAddress> addresses_; // not tried yet, the next one last
    Descriptor socket_;
    TimePoint address_deadline_;
    std::string last_error_; // of the address tried last
};

} // namespace qz::client
