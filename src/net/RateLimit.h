// The safeguard MessagesPerSecond: who sends faster is read more slowly. Nothing is dropped: what waits fills
// the peer's own buffers until it stops writing.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Deployment.h"
#include "platform/Sockets.h"

#include <chrono>
#include <cstdint>
#include <set>
#include <unordered_map>

namespace qz::net {

/// Counts the units that arrive on each socket. A socket may send two seconds' worth at once; from then on it
/// is read at the rate of the setting, a tick's worth with each tick.
class RateLimit {
public:
    RateLimit(const config::Deployment& deployment, const Clock& clock, Journal& journal)
        : deployment_(deployment), clock_(clock), journal_(journal)
    {
    }

    /// The sockets to slow down: new ones at every start.
    void use(platform::ClientSockets* sockets);
    /// One unit has arrived.
    void arrived(std::int16_t socket);
    void left(std::int16_t socket);
    /// Reads the setting anew, and lets those go on whose time has come. Run on every tick.
    void go_on();

private:
    struct Allowance {
        double units = 0;
        std::chrono::steady_clock::time_point filled;
        bool logged = false;
    };

    void fill(Allowance& allowance) const;

    const config::Deployment& deployment_;
    const Clock& clock_;
    Journal& journal_;
    platform::ClientSockets* sockets_ = nullptr;
    double rate_ = 0; // units a second; 0 while there is no limit
    std::unordered_map<std::int16_t, Allowance> allowances_;
    std::set<std::int16_t> waiting_; // that are not read at present
};

} // namespace qz::net
