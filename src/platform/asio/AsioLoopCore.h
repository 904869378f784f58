// The inside of the event loop, for the components of this folder only: everybody else stays free of Asio.
#pragma once

#include <utility> // Asio 1.74 uses std::exchange without including it

#include "platform/EventLoop.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace qz::platform {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using IoExecutor = asio::io_context::executor_type;
using TcpSocket = asio::basic_stream_socket<tcp, IoExecutor>;
using SteadyClock = std::chrono::steady_clock;

/// A connection that nobody has accepted yet.
struct ConnectionRequest {
    TcpSocket socket;
    std::string address; // of the peer
};

class AsioLoopCore {
public:
    void run();
    void stop();
    void yield_to_pending_events();
    void add_listener(TurnListener& listener, TurnPhase phase);
    void remove_listener(TurnListener& listener);

    asio::io_context& context() { return context_; }

    /// Runs the work of one event. Every handler of every component goes through here, so that the loop knows
    /// how long the event has been running.
    template <typename Work> void event(Work&& work)
    {
        const EventScope scope(*this);
        std::forward<Work>(work)();
    }

    /// Queues an event.
    template <typename Work> void post(Work work)
    {
        asio::post(context_, [this, work = std::move(work)]() mutable { event(work); });
    }

    /// Makes sure that a turn ends soon: for output that was queued outside a turn.
    void ensure_turn_end();

    // Where listening sockets leave the connections that client sockets may accept.
    std::int32_t add_request(ConnectionRequest request);
    /// Nothing when there is no such request (any more).
    std::optional<ConnectionRequest> take_request(std::int32_t number);
    /// Address of its peer; empty when there is no such request.
    std::string request_address(std::int32_t number) const
    {
        const auto found = requests_.find(number);
        return found == requests_.end() ? std::string{} : found->second.address;
    }

private:
    class EventScope {
    public:
        explicit EventScope(AsioLoopCore& core) : core_(core) { core_.event_begins(); }
        ~EventScope() { core_.event_ends(); }
        EventScope(const EventScope&) = delete;
        EventScope& operator=(const EventScope&) = delete;

    private:
        AsioLoopCore& core_;
    };

    struct Listener {
        TurnListener* listener; // null when it was removed during the end of a turn
        TurnPhase phase;
    };

    void event_begins();
    void event_ends();
    void run_ready_events();
    void end_turn();
    void tell(TurnPhase phase);

    // One thread runs it and uses its sockets and timers, which therefore need no locks; others only post.
    asio::io_context context_{BOOST_ASIO_CONCURRENCY_HINT_UNSAFE_IO};
    asio::executor_work_guard<IoExecutor> work_{context_.get_executor()};
    std::atomic<bool> stop_asked_ = false;
    std::unordered_map<std::int32_t, ConnectionRequest> requests_;
    std::int32_t last_request_ = 0;
    std::vector<Listener> listeners_;
    int events_running_ = 0;    // 2 while an event that yielded runs another
    bool turn_running_ = false; // from its first event on
    bool yielding_ = false;
    bool ending_turn_ = false;
    SteadyClock::time_point turn_began_;
    SteadyClock::time_point event_began_ = SteadyClock::now();
};

} // namespace qz::platform
