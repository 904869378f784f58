// The one thread's loop: events one at a time, and the end of each turn.
#pragma once

#include <functional>

namespace qz::platform {

/// Hears the end of a turn of the loop, on the loop's thread.
class TurnListener {
public:
    virtual void turn_ended() = 0;

protected:
    ~TurnListener() = default;
};

/// At the end of a turn all listeners of Commit run before those of Output, so that nothing is told to
/// anybody that is not stored.
enum class TurnPhase { Commit, Output };

class EventLoop {
public:
    EventLoop() = default;
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;
    virtual ~EventLoop() = default;

    /// Runs events until stop is called. A turn is a bounded run of events that are ready together.
    virtual void run() = 0;
    virtual void stop() = 0;
    /// Queues work for the loop; the only operation that other threads may call.
    virtual void post(std::function<void()> work) = 0;
    /// Ends the turn and runs the events that are already pending, nested once at most, and only when the
    /// current event has held the loop for more than a few milliseconds. Code that walks a table must stand a
    /// change there.
    virtual void yield_to_pending_events() = 0;

    virtual void add_listener(TurnListener& listener, TurnPhase phase) = 0;
    virtual void remove_listener(TurnListener& listener) = 0;
};

} // namespace qz::platform
