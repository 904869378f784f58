#include "client/DeliveryRecord.h"

#include "base/Text.h"

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

} // namespace qz::client
