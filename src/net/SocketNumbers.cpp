#include "net/SocketNumbers.h"

namespace qz::net {

namespace {

constexpr std::int64_t kRestSeconds = 60;
constexpr std::int64_t kLeastRestSeconds = 1; // more than these

} // namespace

void SocketNumbers::use(platform::ClientSockets* sockets)
{
    sockets_ = sockets;
    LastActivity.clear();
    ready_.clear();
    resting_.clear();
}

void SocketNumbers::pool_grew()
{
    const auto count = sockets_->count();
    for (auto socket = static_cast<std::int16_t>(LastActivity.size()); socket < count; ++socket) {
        ready_.insert(ready_.end(), socket);
    }
    LastActivity.resize(static_cast<std::size_t>(count));
}

void SocketNumbers::touch(std::int16_t socket)
{
    if (socket < 0 || static_cast<std::size_t>(socket) >= LastActivity.size()) {
        return;
    }
    const auto now = clock_.now();
    LastActivity[static_cast<std::size_t>(socket)] = now;
    if (sockets_->state(socket) != platform::kSocketConnected) {
        resting_.emplace(now, socket);
    }
}

void SocketNumbers::taken(std::int16_t socket)
{
    const auto now = clock_.now();
    LastActivity.at(static_cast<std::size_t>(socket)) = now;
    ready_.erase(socket);
    resting_.emplace(now, socket);
}

std::optional<std::int16_t> SocketNumbers::rested()
{
    const auto now = clock_.now();
    while (!resting_.empty() && seconds_between(resting_.begin()->first, now) > kRestSeconds) {
        ready_.insert(resting_.begin()->second);
        resting_.erase(resting_.begin());
    }
    while (!ready_.empty()) {
        const auto socket = *ready_.begin();
        ready_.erase(ready_.begin());
        const auto state = sockets_->state(socket);
        if (has_rested(socket, now) && state == platform::kSocketClosed) {
            return socket;
        }
        // In use: closing it lets it rest anew. Still flushing: it rests a little longer. Closed but not
        // rested: it was used again since, or the clock stepped back.
        if (state == platform::kSocketClosing) {
            resting_.emplace(now, socket);
        } else if (state == platform::kSocketClosed) {
            resting_.emplace(last_activity(socket), socket);
        }
    }
    return std::nullopt;
}

std::optional<std::int16_t> SocketNumbers::longest_closed()
{
    if (!deployment_.reuse_resting_sockets()) {
        return std::nullopt;
    }
    const auto now = clock_.now();
    std::vector<std::int16_t> flushing;
    std::optional<std::int16_t> found;
    while (!found && !resting_.empty()) {
        const auto [since, socket] = *resting_.begin();
        const auto seconds = seconds_between(since, now);
        if (seconds >= 0 && seconds <= kLeastRestSeconds) { // below 0 the clock stepped back
            break;
        }
        resting_.erase(resting_.begin());
        const auto state = sockets_->state(socket);
        if (state == platform::kSocketClosing) {
            flushing.push_back(socket);
        } else if (state == platform::kSocketClosed && since < last_activity(socket)) {
            resting_.emplace(last_activity(socket), socket); // it was used again since
        } else if (state == platform::kSocketClosed) {
            found = socket;
        }
    }
    for (const auto socket : flushing) {
        resting_.emplace(now, socket);
    }
    return found;
}

bool SocketNumbers::has_rested(std::int16_t socket, DateTime now) const
{
    const auto last = last_activity(socket);
    return last.empty() || seconds_between(last, now) > kRestSeconds;
}

} // namespace qz::net
