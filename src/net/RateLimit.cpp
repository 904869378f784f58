#include "net/RateLimit.h"

#include <algorithm>

namespace qz::net {

namespace {

constexpr double kSecondsAtOnce = 2;

} // namespace

void RateLimit::use(platform::ClientSockets* sockets)
{
    sockets_ = sockets;
    allowances_.clear();
    waiting_.clear();
    rate_ = deployment_.messages_per_second().value_or(0);
}

void RateLimit::arrived(std::int16_t socket)
{
    if (rate_ <= 0 || sockets_ == nullptr) {
        return;
    }
    const auto [entry, is_new] = allowances_.try_emplace(socket);
    auto& allowance = entry->second;
    if (is_new) {
        allowance = {kSecondsAtOnce * rate_, clock_.steady()};
    }
    fill(allowance);
    allowance.units -= 1;
    if (allowance.units >= 1) {
        return;
    }
    sockets_->set_reading(socket, false);
    waiting_.insert(socket);
    if (!allowance.logged) { // once: it may go on for hours
        allowance.logged = true;
        journal_.log_own("Socket " + std::to_string(socket) + " from " + sockets_->remote_address(socket)
            + " sends more than MessagesPerSecond and is read more slowly");
    }
}

void RateLimit::left(std::int16_t socket)
{
    allowances_.erase(socket);
    waiting_.erase(socket);
}

void RateLimit::go_on()
{
    rate_ = deployment_.messages_per_second().value_or(0);
    for (auto socket = waiting_.begin(); socket != waiting_.end();) {
        auto& allowance = allowances_[*socket];
        fill(allowance);
        if (rate_ > 0 && allowance.units < 1) {
            ++socket;
            continue;
        }
        sockets_->set_reading(*socket, true);
        socket = waiting_.erase(socket);
    }
}

void RateLimit::fill(Allowance& allowance) const
{
    const auto now = clock_.steady();
    const std::chrono::duration<double> passed = now - allowance.filled;
    allowance.units = (std::min)(kSecondsAtOnce * rate_, allowance.units + rate_ * passed.count());
    allowance.filled = now;
}

} // namespace qz::net
