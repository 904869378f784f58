#include "net/SocketPool.h"

#include "base/Guarded.h"
#include "base/Numbers.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::net {

namespace {

constexpr std::int16_t kLeastGrowth = 10;
constexpr std::int16_t kMostGrowing = 655; // the greatest count whose growth is computed without overflow

} // namespace

SocketPool::SocketPool(const ConnectionTable& connections, SocketNumbers& numbers, Sender& sender,
    helpers::MessageParser& parser, TrafficEvents& events, Journal& journal)
    : connections_(connections), numbers_(numbers), sender_(sender), parser_(parser), events_(events),
      journal_(journal)
{
}

void SocketPool::use(platform::ClientSockets* sockets)
{
    sockets_ = sockets;
    numbers_.use(sockets);
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
        numbers_.pool_grew();
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

/// Without the safeguard a pool that cannot grow fails to, which is reported.
std::int16_t SocketPool::take_socket()
{
    auto socket = numbers_.rested();
    if (!socket && sockets_->count() > kMostGrowing) {
        socket = numbers_.longest_closed();
    }
    const auto number = socket ? *socket : grow();
    numbers_.taken(number);
    return number;
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
