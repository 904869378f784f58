// An event loop whose turns a test runs by hand.
#pragma once

#include "platform/EventLoop.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace qz::test {

class ManualLoop : public platform::EventLoop {
public:
    /// Runs turns until stop is called or nothing is pending.
    void run() override;
    void stop() override { stopped_ = true; }
    void post(std::function<void()> work) override;
    void yield_to_pending_events() override;
    void add_listener(platform::TurnListener& listener, platform::TurnPhase phase) override;
    void remove_listener(platform::TurnListener& listener) override;

    /// Runs the events that are pending now as one turn, and ends it. Without any it only ends the turn that
    /// the test's own calls made up.
    void run_turn();
    /// Runs turns, at least one, until nothing is pending. Fails the test when that never happens.
    void run_pending();
    std::size_t pending() const;
    /// From now on every event counts as one that has held the loop for too long, so that yielding yields.
    void set_events_slow(bool slow) { events_slow_ = slow; }
    /// How often the loop really yielded.
    int yields() const { return yields_; }

private:
    std::optional<std::function<void()>> next();
    void run_events();
    void end_turn();

    mutable std::mutex mutex_; // of events_: other threads may post
    std::deque<std::function<void()>> events_;
    std::vector<std::pair<platform::TurnListener*, platform::TurnPhase>> listeners_;
    bool stopped_ = false;
    bool events_slow_ = false;
    bool yielding_ = false;
    bool ending_turn_ = false;
    int yields_ = 0;
};

} // namespace qz::test
