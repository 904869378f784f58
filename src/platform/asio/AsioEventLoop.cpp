#include "platform/asio/AsioEventLoop.h"

#include "platform/asio/AsioLoopCore.h"

#include <algorithm>

namespace qz::platform {

namespace {

constexpr int kTurnEvents = 512;
constexpr std::chrono::milliseconds kTurnTime{20};
/// An event that has run for longer lets others in when it yields.
constexpr std::chrono::milliseconds kEventTime{5};

/// Sets a flag for the length of a block.
class Flag {
public:
    explicit Flag(bool& flag) : flag_(flag) { flag_ = true; }
    ~Flag() { flag_ = false; }
    Flag(const Flag&) = delete;
    Flag& operator=(const Flag&) = delete;

private:
    bool& flag_;
};

} // namespace

void AsioLoopCore::run()
{
    context_.restart();
    while (!stop_asked_) {
        context_.run_one();
        // Events that an event has posted are counted when it is over, but one that yields may run them
        // before: then the context takes its work for done and stops, and would never run anything again.
        if (context_.stopped()) {
            context_.restart();
        }
        run_ready_events();
        end_turn();
    }
    stop_asked_ = false;
}

void AsioLoopCore::stop()
{
    stop_asked_ = true;
    asio::post(context_, [] {}); // wakes a loop that waits
}

void AsioLoopCore::run_ready_events()
{
    for (int events = 1; events < kTurnEvents; ++events) {
        const bool turn_is_over = turn_running_ && SteadyClock::now() - turn_began_ > kTurnTime;
        if (stop_asked_ || turn_is_over || context_.poll_one() == 0) {
            return;
        }
    }
}

void AsioLoopCore::yield_to_pending_events()
{
    if (yielding_ || ending_turn_ || SteadyClock::now() - event_began_ <= kEventTime) {
        return;
    }
    const Flag flag(yielding_);
    end_turn();
    run_ready_events();
    event_began_ = SteadyClock::now();
    if (events_running_ == 0) {
        end_turn(); // nobody around it would
    }
}

void AsioLoopCore::event_begins()
{
    event_began_ = SteadyClock::now();
    ++events_running_;
    if (!turn_running_) {
        turn_running_ = true;
        turn_began_ = event_began_;
    }
}

void AsioLoopCore::event_ends()
{
    --events_running_;
    event_began_ = SteadyClock::now(); // an event around this one has just yielded
}

void AsioLoopCore::ensure_turn_end()
{
    if (events_running_ == 0) {
        post([] {});
    }
}

std::int32_t AsioLoopCore::add_request(ConnectionRequest request)
{
    last_request_ = last_request_ == INT32_MAX ? 1 : last_request_ + 1;
    requests_.insert_or_assign(last_request_, std::move(request));
    return last_request_;
}

std::optional<ConnectionRequest> AsioLoopCore::take_request(std::int32_t number)
{
    auto node = requests_.extract(number);
    return node.empty() ? std::nullopt : std::optional(std::move(node.mapped()));
}

void AsioLoopCore::end_turn()
{
    const Flag flag(ending_turn_);
    turn_running_ = false;
    tell(TurnPhase::Commit);
    tell(TurnPhase::Output);
    std::erase_if(listeners_, [](const Listener& each) { return each.listener == nullptr; });
}

void AsioLoopCore::tell(TurnPhase phase)
{
    // By index: a listener may add others, whose turn comes with the next, or remove some.
    const auto count = listeners_.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (listeners_[i].phase == phase && listeners_[i].listener != nullptr) {
            listeners_[i].listener->turn_ended();
        }
    }
}

void AsioLoopCore::add_listener(TurnListener& listener, TurnPhase phase)
{
    listeners_.push_back({&listener, phase});
}

void AsioLoopCore::remove_listener(TurnListener& listener)
{
    const auto is_it = [&](const Listener& each) {
        return each.listener == &listener;
    };
    if (ending_turn_) {
        const auto found = std::find_if(listeners_.begin(), listeners_.end(), is_it);
        if (found != listeners_.end()) {
            found->listener = nullptr;
        }
        return;
    }
    std::erase_if(listeners_, is_it);
}

AsioEventLoop::AsioEventLoop() : core_(std::make_unique<AsioLoopCore>()) { }

AsioEventLoop::~AsioEventLoop() = default;

void AsioEventLoop::run()
{
    core_->run();
}

void AsioEventLoop::stop()
{
    core_->stop();
}

void AsioEventLoop::post(std::function<void()> work)
{
    core_->post(std::move(work));
}

void AsioEventLoop::yield_to_pending_events()
{
    core_->yield_to_pending_events();
}

void AsioEventLoop::add_listener(TurnListener& listener, TurnPhase phase)
{
    core_->add_listener(listener, phase);
}

void AsioEventLoop::remove_listener(TurnListener& listener)
{
    core_->remove_listener(listener);
}

} // namespace qz::platform
