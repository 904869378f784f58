// Brings together the two halves of somebody's offer: the request that the server passes on with the address,
// and the message that tells what is offered. Either may come first.
#pragma once

#include "client/transfer/NegotiationText.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qz::client::transfer {

class PendingOffers {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    static constexpr std::chrono::seconds kHalfTime{60}; // until the other half has to be there
    static constexpr std::size_t kMost = 64;             // users of whom a half is kept

    struct Whole {
        std::string from;
        std::string address;
        OfferText offer;
    };
    std::optional<Whole> put_request(const std::string& from, const std::string& address, TimePoint now);
    std::optional<Whole> put_offer(const std::string& from, const OfferText& offer, TimePoint now);
    /// The sender has thought better of it.
    void withdraw(const std::string& from, const std::string& id);
    /// Forgets the halves whose time is over.
    /// @return who asked and never told for what.
    std::vector<std::string> sweep(TimePoint now);
    std::optional<TimePoint> next_deadline() const;
    void clear() { halves_.clear(); }

private:
    struct Half {
        std::optional<std::string> address;
        std::optional<OfferText> offer;
        TimePoint deadline;
    };
    Half* half_of(const std::string& from, TimePoint now);
    std::optional<Whole> join(const std::string& from);

    std::map<std::string, Half> halves_; // by the sender's name
};

} // namespace qz::client::transfer
