#include "net/ConnectionRate.h"

#include <algorithm>
#include <utility>

namespace qz::net {

namespace {

constexpr std::chrono::seconds kAtOnce{4};

} // namespace

bool ConnectionRate::take(const std::string& address, double rate)
{
    forget_full();
    const auto capacity = rate * static_cast<double>(kAtOnce.count());
    auto& found = bucket(address, capacity);
    const auto now = clock_.steady();
    const std::chrono::duration<double> passed = now - found.filled;
    found.tokens = (std::min)(capacity, found.tokens + rate * passed.count());
    found.filled = now;
    if (found.tokens < 1) {
        return false;
    }
    found.tokens -= 1;
    return true;
}

void ConnectionRate::clear()
{
    recent_.clear();
    older_.clear();
}

/// What was not used between two exchanges has filled up meanwhile.
void ConnectionRate::forget_full()
{
    const auto now = clock_.steady();
    if (now - exchanged_ >= kAtOnce) {
        exchanged_ = now;
        older_ = std::exchange(recent_, {});
    }
}

ConnectionRate::Bucket& ConnectionRate::bucket(const std::string& address, double capacity)
{
    const auto [entry, is_new] = recent_.try_emplace(address, Bucket{capacity, clock_.steady()});
    if (const auto older = is_new ? older_.find(address) : older_.end(); older != older_.end()) {
        entry->second = older->second;
        older_.erase(older);
    }
    return entry->second;
}

} // namespace qz::net
