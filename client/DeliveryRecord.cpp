#include "client/DeliveryRecord.h"

#include "base/Text.h"

#include <algorithm>

namespace qz::client {

bool SeenMessages::is_new(const Message& message)
{
    constexpr std::size_t kEnoughOfName = 255; // foreign bytes do not decide how much is kept
    auto key =
        std::to_string(message.id).append(1, ' ').append(first_characters(message.sender, kEnoughOfName));
    if (!known_.insert(key).second) {
        return false;
    }
    order_.push_back(std::move(key));
    if (order_.size() > kMost) {
        known_.erase(order_.front());
        order_.pop_front();
    }
    return true;
}

void Confirmations::add(MessageId id)
{
    ids_.push_back(id);
    if (ids_.size() > kMost) {
        ids_.pop_front();
        ++first_;
        next_ = (std::max)(next_, first_);
    }
}

std::optional<MessageId> Confirmations::next_to_send() const
{
    const auto position = next_ - first_;
    return position < ids_.size() ? std::optional(ids_[position]) : std::nullopt;
}

void Confirmations::mark_sent()
{
    ++next_;
}

void Confirmations::acknowledge(std::uint64_t mark)
{
    while (first_ < mark && !ids_.empty()) {
        ids_.pop_front();
        ++first_;
    }
}

void Confirmations::clear()
{
    acknowledge(first_ + ids_.size());
    next_ = first_;
}

} // namespace qz::client
