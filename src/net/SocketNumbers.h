// Which number of the pool a new connection gets.
#pragma once

#include "base/Clock.h"
#include "config/Deployment.h"
#include "platform/Sockets.h"

#include <cstdint>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace qz::net {

/// A number that was closed rests for 60 seconds, so that a late packet for the previous client does not
/// reach a new one.
class SocketNumbers {
public:
    SocketNumbers(const config::Deployment& deployment, const Clock& clock)
        : deployment_(deployment), clock_(clock)
    {
    }

    /// The component to work with: a new one at every start.
    void use(platform::ClientSockets* sockets);
    /// The pool has sockets up to the component's count; what is known of older ones stays.
    void pool_grew();
    /// A socket was used just now: it arrived, spoke or closed. A closed one rests from here on.
    void touch(std::int16_t socket);

    /// The first number, in order, that is closed and was never used or has rested for more than 60 seconds.
    std::optional<std::int16_t> rested();
    /// The safeguard ReuseRestingSockets: the number that was closed longest ago; nothing when it is off.
    /// Packets cannot reach the wrong client, since a number is closed only when its connection is gone, and
    /// a session id is valid for one logon. Numbers closed less than two seconds ago are left alone: a
    /// request of their previous client may still be at work further up, waiting for a yield to return.
    std::optional<std::int16_t> longest_closed();
    /// A number is given to a connection request. When the accept fails it rests like one that was used.
    void taken(std::int16_t socket);

private:
    using Resting = std::pair<DateTime, std::int16_t>;

    bool has_rested(std::int16_t socket, DateTime now) const;
    DateTime last_activity(std::int16_t socket) const
    {
        return LastActivity[static_cast<std::size_t>(socket)];
    }

    const config::Deployment& deployment_;
    const Clock& clock_;
    platform::ClientSockets* sockets_ = nullptr;
    std::vector<DateTime> LastActivity; // the empty time: never used

    // These two find a number without a scan: numbers that may be taken now, and numbers that rest, oldest
    // activity first. Both are only hints, checked against the rule when a number is taken.
    std::set<std::int16_t> ready_;
    std::set<Resting> resting_;
};

} // namespace qz::net
