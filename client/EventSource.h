// What a program's loop waits for.
#pragma once

#include <chrono>
#include <optional>
#include <vector>

namespace qz::client {

struct Watch {
    int descriptor = -1;
    bool read = false;
    bool write = false;
};

/// Something with descriptors of its own that can share the program's loop.
class EventSource {
public:
    /// To be asked again after every call.
    virtual void add_watches(std::vector<Watch>& watches) const = 0;
    /// To be called when one of the watched is ready, or the deadline has come. Saying too much does no harm.
    virtual void on_ready() = 0;
    virtual std::optional<std::chrono::steady_clock::time_point> next_deadline() const = 0;

protected:
    ~EventSource() = default; // never deleted through this type
};

} // namespace qz::client
