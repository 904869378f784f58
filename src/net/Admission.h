// The caps on connections: how many at a time and from one address, how many new ones a second, and how long
// one may take to log on.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Deployment.h"
#include "net/ConnectionRate.h"
#include "net/ConnectionTable.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

namespace qz::net {

/// Counts the connections from their acceptance to their end. Each cap holds only where the deployment sets
/// it.
class Admission {
public:
    Admission(const ConnectionTable& connections, const config::Deployment& deployment, const Clock& clock,
        Journal& journal);

    /// Whether one more connection may come in from an address. Refusals are logged, several of them together
    /// at most every ten seconds: whoever is refused tries again at once.
    bool admits(const std::string& address);
    void entered(std::int16_t socket, const std::string& address);
    void left(std::int16_t socket);
    /// A connection that has not logged on within its time; nothing when there is none (any more). It is
    /// logged, and not given again.
    std::optional<std::int16_t> next_overdue();
    void clear();

private:
    using Time = std::chrono::steady_clock::time_point;
    struct Entry {
        std::string address; // as it counts
        Time since;
    };

    const char* reason_to_refuse(const std::string& key);
    void log_refusal(const std::string& address, const char* reason);

    const ConnectionTable& connections_;
    const config::Deployment& deployment_;
    const Clock& clock_;
    Journal& journal_;
    std::unordered_map<std::int16_t, Entry> entries_;          // by socket
    std::unordered_map<std::string, std::int32_t> by_address_; // how many
    ConnectionRate rate_;
    std::set<std::pair<Time, std::int16_t>> not_logged_on_; // as far as is known, oldest first
    std::int32_t refused_ = 0;                              // since the last line about it
    std::optional<Time> refusal_logged_;
};

} // namespace qz::net
