#include "support/ManualLoop.h"

#include <algorithm>
#include <stdexcept>

namespace qz::test {

using platform::TurnPhase;

void ManualLoop::run()
{
    while (!stopped_ && pending() > 0) {
        run_turn();
    }
    stopped_ = false;
}

void ManualLoop::post(std::function<void()> work)
{
    const std::scoped_lock lock(mutex_);
    events_.push_back(std::move(work));
}

std::size_t ManualLoop::pending() const
{
    const std::scoped_lock lock(mutex_);
    return events_.size();
}

std::optional<std::function<void()>> ManualLoop::next()
{
    const std::scoped_lock lock(mutex_);
    if (events_.empty()) {
        return std::nullopt;
    }
    auto event = std::move(events_.front());
    events_.pop_front();
    return event;
}

void ManualLoop::run_events()
{
    for (auto count = pending(); count > 0; --count) {
        if (const auto event = next()) { // an event that yielded may have run the rest
            (*event)();
        }
    }
}

void ManualLoop::run_turn()
{
    run_events();
    end_turn();
}

void ManualLoop::run_pending()
{
    run_turn();
    for (int turns = 0; pending() > 0; ++turns) {
        if (turns == 100'000) {
            throw std::runtime_error("the events never come to an end");
        }
        run_turn();
    }
}

void ManualLoop::yield_to_pending_events()
{
    if (!events_slow_ || yielding_ || ending_turn_) {
        return;
    }
    ++yields_;
    yielding_ = true;
    end_turn();
    run_events();
    yielding_ = false;
}

void ManualLoop::end_turn()
{
    ending_turn_ = true;
    for (const auto phase : {TurnPhase::Commit, TurnPhase::Output}) {
        // By index, for a listener may add listeners or leave.
        const auto count = listeners_.size();
        for (std::size_t i = 0; i < count; ++i) {
            if (listeners_[i].first != nullptr && listeners_[i].second == phase) {
                listeners_[i].first->turn_ended();
            }
        }
    }
    ending_turn_ = false;
    std::erase_if(listeners_, [](const auto& each) { return each.first == nullptr; });
}

void ManualLoop::add_listener(platform::TurnListener& listener, TurnPhase phase)
{
    listeners_.emplace_back(&listener, phase);
}

void ManualLoop::remove_listener(platform::TurnListener& listener)
{
    for (auto& each : listeners_) {
        if (each.first == &listener) {
            each.first = nullptr;
        }
    }
    if (!ending_turn_) {
        std::erase_if(listeners_, [](const auto& each) { return each.first == nullptr; });
    }
}

} // namespace qz::test
