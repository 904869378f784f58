// The timer component on the event loop.
#pragma once

#include "platform/Timer.h"

#include <memory>

namespace qz::platform {

class AsioEventLoop;

/// Ticks at a steady pace; a change of the interval begins it anew. With an interval of 0 it does not tick.
/// An event that yields for long may find a tick running within it.
class AsioTimer : public Timer {
public:
    AsioTimer(AsioEventLoop& loop, TimerEvents& events);
    ~AsioTimer() override;

    void set_interval(std::chrono::milliseconds interval) override;
    std::chrono::milliseconds interval() const override;
    void set_enabled(bool enabled) override;

private:
    class Clockwork;
    std::shared_ptr<Clockwork> clockwork_;
};

} // namespace qz::platform
