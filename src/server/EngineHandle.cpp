#include "server/EngineHandle.h"

#include "server/Engine.h"
#include "server/EventRelay.h"
#include "server/Nesting.h"

#include <utility>

namespace qz::server {

class EngineHandle::Holder final : public std::enable_shared_from_this<Holder>,
                                   private platform::TurnListener {
public:
    Holder(platform::Machine& machine, MainEvents& host)
        : loop_(machine.loop()), events_(host), engine_(std::make_unique<Engine>(machine, events_))
    {
    }

    Engine& engine() { return *engine_; }
    void call_begins() { calls_.enter(); }
    void call_ends()
    {
        calls_.leave();
        if (given_up_ && !is_running()) { // the call was made outside the loop
            destroy_engine();
        }
    }

    void start()
    {
        if (engine_->status == ServerStatus::Arrested && is_running()) {
            start_wanted_ = true;
            wait_for_turn_end();
            return;
        }
        Call(shared_from_this())->Server_Start();
    }
    void forget_start() { start_wanted_ = false; }

    void give_up()
    {
        if (!is_running()) {
            engine_.reset();
            return;
        }
        events_.mute();
        given_up_ = shared_from_this();
        wait_for_turn_end();
    }

private:
    bool is_running() const { return calls_.inside() || events_.is_raising() || engine_->running.inside(); }

    void wait_for_turn_end()
    {
        if (!std::exchange(waiting_, true)) {
            loop_.add_listener(*this, platform::TurnPhase::Output);
            loop_.post([] {}); // so that there is another turn
        }
    }

    void turn_ended() override
    {
        if (is_running()) { // this turn ends within an event that yields
            return;
        }
        if (given_up_) {
            destroy_engine();
            return;
        }
        stop_waiting();
        // Not here: what a start stores belongs to a turn of its own.
        loop_.post([weak = weak_from_this()] {
            const auto self = weak.lock();
            if (self && std::exchange(self->start_wanted_, false)) {
                self->start(); // or waits again
            }
        });
    }

    void stop_waiting()
    {
        if (std::exchange(waiting_, false)) {
            loop_.remove_listener(*this);
        }
    }

    /// The last step: it may destroy this object.
    void destroy_engine()
    {
        const auto self = std::exchange(given_up_, nullptr);
        stop_waiting();
        engine_.reset();
    }

    platform::EventLoop& loop_;
    EventRelay events_;
    std::unique_ptr<Engine> engine_;
    Nesting calls_;
    bool waiting_ = false; // for the end of a turn
    bool start_wanted_ = false;
    std::shared_ptr<Holder> given_up_; // itself, from then on until the engine is destroyed
};

EngineHandle::Call::Call(std::shared_ptr<Holder> holder) : holder_(std::move(holder))
{
    holder_->call_begins();
}

EngineHandle::Call::~Call()
{
    holder_->call_ends();
}

Engine* EngineHandle::Call::operator->() const
{
    return &holder_->engine();
}

EngineHandle::EngineHandle(platform::Machine& machine, MainEvents& host)
    : holder_(std::make_shared<Holder>(machine, host))
{
}

EngineHandle::~EngineHandle()
{
    holder_->give_up();
}

void EngineHandle::Server_Start()
{
    holder_->start();
}

void EngineHandle::Server_End()
{
    holder_->forget_start();
    Call(holder_)->Server_End();
}

} // namespace qz::server
