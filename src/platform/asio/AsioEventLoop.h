// The event loop on Boost.Asio.
#pragma once

#include "platform/EventLoop.h"

#include <memory>

namespace qz::platform {

class AsioLoopCore;

/// A turn runs at most kTurnEvents events or about kTurnTime. Work posted before run is run by it; a stop
/// before run makes that run return at once.
class AsioEventLoop : public EventLoop {
public:
    AsioEventLoop();
    ~AsioEventLoop() override;

    void run() override;
    /// May be called by every thread. The turn that is running still ends with its listeners.
    void stop() override;
    void post(std::function<void()> work) override;
    void yield_to_pending_events() override;
    void add_listener(TurnListener& listener, TurnPhase phase) override;
    void remove_listener(TurnListener& listener) override;

    /// For the other components of this folder.
    AsioLoopCore& core() { return *core_; }

private:
    std::unique_ptr<AsioLoopCore> core_;
};

} // namespace qz::platform
