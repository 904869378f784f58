// How many connections an address may open in a second.
#pragma once

#include "base/Clock.h"

#include <chrono>
#include <string>
#include <unordered_map>

namespace qz::net {

/// A token bucket for each address: it holds four seconds' worth and fills at the rate. Buckets that are full
/// again are forgotten, so memory is bounded by the addresses of the last eight seconds.
class ConnectionRate {
public:
    explicit ConnectionRate(const Clock& clock) : clock_(clock) { }

    /// Whether an address may open one more connection now; a yes counts, a no does not.
    /// @param rate  connections a second.
    bool take(const std::string& address, double rate);
    void clear();

private:
    using Time = std::chrono::steady_clock::time_point;
    struct Bucket {
        double tokens = 0;
        Time filled;
    };

    void forget_full();
    Bucket& bucket(const std::string& address, double capacity);

    const Clock& clock_;
    // Used since the last exchange of the two, and used before it.
    std::unordered_map<std::string, Bucket> recent_;
    std::unordered_map<std::string, Bucket> older_;
    Time exchanged_;
};

} // namespace qz::net
