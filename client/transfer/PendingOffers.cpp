#include "client/transfer/PendingOffers.h"

#include <algorithm>

namespace qz::client::transfer {

PendingOffers::Half* PendingOffers::half_of(const std::string& from, TimePoint now)
{
    if (halves_.find(from) == halves_.end() && halves_.size() >= kMost) {
        return nullptr;
    }
    auto& half = halves_[from];
    half.deadline = now + kHalfTime;
    return &half;
}

std::optional<PendingOffers::Whole> PendingOffers::put_request(
    const std::string& from, const std::string& address, TimePoint now)
{
    auto* const half = half_of(from, now);
    if (half == nullptr) {
        return std::nullopt;
    }
    half->address = address;
    return join(from);
}

std::optional<PendingOffers::Whole> PendingOffers::put_offer(
    const std::string& from, const OfferText& offer, TimePoint now)
{
    auto* const half = half_of(from, now);
    if (half == nullptr) {
        return std::nullopt;
    }
    half->offer = offer;
    return join(from);
}

std::optional<PendingOffers::Whole> PendingOffers::join(const std::string& from)
{
    const auto half = halves_.find(from);
    if (!half->second.address || !half->second.offer) {
        return std::nullopt;
    }
    Whole whole{from, std::move(*half->second.address), std::move(*half->second.offer)};
    halves_.erase(half);
    return whole;
}

void PendingOffers::withdraw(const std::string& from, const std::string& id)
{
    const auto half = halves_.find(from);
    if (half != halves_.end() && half->second.offer && half->second.offer->id == id) {
        halves_.erase(half);
    }
}

std::vector<std::string> PendingOffers::sweep(TimePoint now)
{
    std::vector<std::string> without_offer;
    std::erase_if(halves_, [&](const auto& each) {
        const bool is_over = now >= each.second.deadline;
        if (is_over && each.second.address) {
            without_offer.push_back(each.first);
        }
        return is_over;
    });
    return without_offer;
}

std::optional<PendingOffers::TimePoint> PendingOffers::next_deadline() const
{
    const auto earliest = std::min_element(halves_.begin(), halves_.end(),
        [](const auto& left, const auto& right) { return left.second.deadline < right.second.deadline; });
    return earliest == halves_.end() ? std::nullopt : std::optional(earliest->second.deadline);
}

} // namespace qz::client::transfer
