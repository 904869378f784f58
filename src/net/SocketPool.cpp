#include "net/SocketPool.h"

#include "base/Guarded.h"
#include "base/Numbers.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::net {

namespace {

constexpr std::int64_t kRestSeconds = 60;
constexpr std::int16_t kLeastGrowth = 10;

} // namespace

SocketPool::SocketPool(const ConnectionTable& connections, Sender& sender, helpers::MessageParser& parser,
    const Clock& clock, TrafficEvents& events, Journal& journal)
    : connections_(connections), sender_(sender), parser_(parser), clock_(clock), events_(events),
      journal_(journal)
{
}

void SocketPool::use(platform::ClientSockets* sockets)
{
    sockets_ = sockets;
    LastActivity.clear();
    ready_.clear();
    resting_ = {};
}

void SocketPool::LoadSockets(std::int16_t number_of_sockets_to_load, bool to_preserve)
{
    attempt([&] {
        journal_.log_own("Preparing " + std::to_string(number_of_sockets_to_load) + " sockets...");
        if (sockets_ == nullptr) {
            return;
        }
        attempt([&] { sockets_->load(number_of_sockets_to_load, to_preserve); });
        const auto count = sockets_->count();
        for (auto socket = static_cast<std::int16_t>(LastActivity.size()); socket < count; ++socket) {
            ready_.insert(ready_.end(), socket);
        }
        LastActivity.resize(static_cast<std::size_t>(count));
        journal_.log_own("Now available " + std::to_string(count) + " sockets");
    });
}

std::int16_t SocketPool::get_SocketsCount() const
{
    return sockets_ == nullptr ? std::int16_t{0} : sockets_->count();
}

std::int16_t SocketPool::connection_requested(std::int32_t request)
{
    std::string address;
    return guarded(journal_, "QZ_WinSock_Server_ConnectionRequest", address, std::int16_t{0}, [&] {
        const auto socket = take_socket();
        sockets_->accept(socket, request);
        sender_.SendData(
            socket, helpers::protocol_keywords().SessionOffer, "sessionidvalue=" + fresh_session_id());
        address = sockets_->remote_address(socket);
        events_.new_connection_requested(address + " on " + std::to_string(socket));
        journal_.log_own("New connection request on socket " + std::to_string(socket) + " from " + address);
        return socket;
    });
}

void SocketPool::touch(std::int16_t socket)
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

std::int16_t SocketPool::state(std::int16_t socket) const
{
    return sockets_ == nullptr ? platform::kSocketClosed : sockets_->state(socket);
}

bool SocketPool::SocketFree(std::int16_t socket) const
{
    return connections_.first_on(socket) == nullptr && sockets_ != nullptr
        && state(socket) == platform::kSocketClosed;
}

bool SocketPool::is_connected(std::int16_t socket) const
{
    return sockets_ != nullptr && sockets_->state(socket) == platform::kSocketConnected;
}

std::int64_t SocketPool::count_connected() const
{
    std::int64_t connected = 0;
    for (std::int16_t socket = 0; socket < get_SocketsCount(); ++socket) {
        connected += is_connected(socket) ? 1 : 0;
    }
    return connected;
}

std::size_t SocketPool::unsent(std::int16_t socket) const
{
    return sockets_ == nullptr ? 0 : sockets_->unsent(socket);
}

bool SocketPool::is_on_this_machine(std::int16_t socket) const
{
    return sockets_ != nullptr
        && sockets_->remote_address(socket) == helpers::protocol_keywords().HostAddress;
}

std::string SocketPool::get_RemoteAddress(std::int16_t socket) const
{
    if (sockets_ == nullptr) {
        return {};
    }
    auto address = sockets_->remote_address(socket);
    if (address != helpers::protocol_keywords().HostAddress) {
        return address;
    }
    return own_address_.empty() ? sockets_->local_address() : own_address_;
}

std::int16_t SocketPool::take_socket()
{
    std::int16_t socket = 0;
    if (!take_rested_socket(socket)) {
        socket = grow();
    }
    LastActivity.at(static_cast<std::size_t>(socket)) = clock_.now();
    ready_.erase(socket);
    // When the accept fails the number rests like one that was used.
    resting_.emplace(clock_.now(), socket);
    return socket;
}

bool SocketPool::take_rested_socket(std::int16_t& socket)
{
    const auto now = clock_.now();
    while (!resting_.empty() && seconds_between(resting_.top().first, now) > kRestSeconds) {
        ready_.insert(resting_.top().second);
        resting_.pop();
    }
    while (!ready_.empty()) {
        socket = *ready_.begin();
        ready_.erase(ready_.begin());
        if (has_rested(socket, now) && sockets_->state(socket) == platform::kSocketClosed) {
            return true;
        }
        // In use: closing it lets it rest anew. Still flushing: it rests a little longer. Closed but not
        // rested: it was used again since, or the clock stepped back.
        if (sockets_->state(socket) == platform::kSocketClosing) {
            resting_.emplace(now, socket);
        } else if (sockets_->state(socket) == platform::kSocketClosed) {
            resting_.emplace(LastActivity[static_cast<std::size_t>(socket)], socket);
        }
    }
    return false;
}

bool SocketPool::has_rested(std::int16_t socket, DateTime now) const
{
    const auto last = LastActivity[static_cast<std::size_t>(socket)];
    return last.empty() || seconds_between(last, now) > kRestSeconds;
}

/// Half the current count, at least 10. The new connection gets the number count + 1; the number count itself
/// is left out, which is intended: it is found by the next request.
std::int16_t SocketPool::grow()
{
    const auto count = sockets_->count();
    const auto product =
        to_integer<std::int16_t>(count * 50.0); // 16 bits: the pool grows by itself only to 757
    const auto half = to_integer<std::int16_t>(product / 100.0);
    LoadSockets(half < kLeastGrowth / 2 ? kLeastGrowth : half, false);
    return to_integer<std::int16_t>(count + 1.0);
}

std::string SocketPool::fresh_session_id()
{
    for (;;) {
        auto id = decimal(parser_.fresh_number());
        if (SessionIDFree(id)) {
            return id;
        }
    }
}

} // namespace qz::net
