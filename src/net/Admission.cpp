#include "net/Admission.h"

#include "net/AddressKey.h"

namespace qz::net {

namespace {

constexpr std::chrono::seconds kBetweenLines{10};

} // namespace

Admission::Admission(const ConnectionTable& connections, const config::Deployment& deployment,
    const Clock& clock, Journal& journal)
    : connections_(connections), deployment_(deployment), clock_(clock), journal_(journal), rate_(clock)
{
}

bool Admission::admits(const std::string& address)
{
    const char* reason = reason_to_refuse(address_key(address));
    if (reason != nullptr) {
        log_refusal(address, reason);
    }
    return reason == nullptr;
}

const char* Admission::reason_to_refuse(const std::string& key)
{
    if (const auto most = deployment_.max_connections();
        most && entries_.size() >= static_cast<std::size_t>(*most)) {
        return "MaxConnections is reached";
    }
    const auto count = by_address_.find(key);
    const auto most = deployment_.max_connections_per_address();
    if (most && count != by_address_.end() && count->second >= *most) {
        return "MaxConnectionsPerAddress is reached";
    }
    // Last, for it counts: a connection that is refused must not use up the rate.
    const auto rate = deployment_.connections_per_second();
    return rate && !rate_.take(key, *rate) ? "ConnectionsPerSecond is reached" : nullptr;
}

void Admission::log_refusal(const std::string& address, const char* reason)
{
    ++refused_;
    const auto now = clock_.steady();
    if (refusal_logged_ && now - *refusal_logged_ < kBetweenLines) {
        return;
    }
    refusal_logged_ = now;
    journal_.log_own("Connections refused: " + std::to_string(refused_) + ", the last one from " + address
        + " because " + reason);
    refused_ = 0;
}

void Admission::entered(std::int16_t socket, const std::string& address)
{
    left(socket);
    Entry entry{address_key(address), clock_.steady()};
    ++by_address_[entry.address];
    not_logged_on_.emplace(entry.since, socket);
    entries_.emplace(socket, std::move(entry));
}

void Admission::left(std::int16_t socket)
{
    const auto entry = entries_.find(socket);
    if (entry == entries_.end()) {
        return;
    }
    const auto count = by_address_.find(entry->second.address);
    if (--count->second == 0) {
        by_address_.erase(count);
    }
    not_logged_on_.erase({entry->second.since, socket});
    entries_.erase(entry);
}

std::optional<std::int16_t> Admission::next_overdue()
{
    const auto limit = deployment_.logon_time();
    while (limit && !not_logged_on_.empty() && clock_.steady() - not_logged_on_.begin()->first >= *limit) {
        const auto socket = not_logged_on_.begin()->second;
        not_logged_on_.erase(not_logged_on_.begin());
        if (connections_.first_on(socket) == nullptr) { // who has logged on stays so until it leaves
            const auto entry = entries_.find(socket);
            const Journal::Cause cause(
                journal_, entry == entries_.end() ? std::string() : entry->second.address);
            journal_.log_own("Socket " + std::to_string(socket) + " closed: no logon within "
                + std::to_string(limit->count()) + " seconds");
            return socket;
        }
    }
    return std::nullopt;
}

void Admission::clear()
{
    entries_.clear();
    by_address_.clear();
    rate_.clear();
    not_logged_on_.clear();
}

} // namespace qz::net
