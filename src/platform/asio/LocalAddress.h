// Addresses of this machine and of peers as texts.
#pragma once

#include "platform/asio/AsioLoopCore.h"

#include <string>

namespace qz::platform {

/// The machine's first IPv4 address that is not loopback, else 127.0.0.1. Looked up anew after a minute at
/// the latest: it is asked for on many events, and a machine's addresses seldom change.
class LocalAddress {
public:
    const std::string& text();

private:
    std::string text_;
    SteadyClock::time_point read_;
};

/// The address without the port; an IPv4 address that came over an IPv6 socket is shown as IPv4.
std::string address_text(const asio::ip::address& address);

} // namespace qz::platform
