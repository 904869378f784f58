#include "platform/asio/LocalAddress.h"

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/host_name.hpp>

#ifndef _WIN32
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#endif

#include <cstring>
#include <memory>

namespace qz::platform {

namespace {

const std::string kLoopback = "127.0.0.1";

#ifdef _WIN32

std::string first_address()
{
    asio::io_context context;
    boost::system::error_code error;
    for (const auto& each : tcp::resolver(context).resolve(tcp::v4(), asio::ip::host_name(), "", error)) {
        if (!each.endpoint().address().is_loopback()) {
            return each.endpoint().address().to_string();
        }
    }
    return kLoopback;
}

#else

std::string first_address()
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return kLoopback;
    }
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, &freeifaddrs);
    for (const auto* each = list; each != nullptr; each = each->ifa_next) {
        const bool usable = (each->ifa_flags & IFF_UP) != 0 && (each->ifa_flags & IFF_LOOPBACK) == 0;
        if (usable && each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET) {
            sockaddr_in found{};
            std::memcpy(&found, each->ifa_addr, sizeof(found));
            return asio::ip::address_v4(ntohl(found.sin_addr.s_addr)).to_string();
        }
    }
    return kLoopback;
}

#endif

} // namespace

const std::string& LocalAddress::text()
{
    const auto now = SteadyClock::now();
    if (text_.empty() || now - read_ > std::chrono::minutes(1)) {
        text_ = first_address();
        read_ = now;
    }
    return text_;
}

std::string address_text(const asio::ip::address& address)
{
    if (address.is_v6() && address.to_v6().is_v4_mapped()) {
        return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).to_string();
    }
    return address.to_string();
}

} // namespace qz::platform
