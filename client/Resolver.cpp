#include "client/Resolver.h"

#include <array>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <netdb.h>
#include <system_error>
#include <thread>

namespace qz::client {

struct Resolver::Search {
    std::mutex mutex; // for all below
    Result result;
    Descriptor end; // closed when the result is there
};

namespace {

Resolver::Result look_up(const Endpoint& endpoint, int flags)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    addrinfo* list = nullptr;
    const auto port = std::to_string(endpoint.port);
    if (const int error = getaddrinfo(endpoint.host.c_str(), port.c_str(), &hints, &list); error != 0) {
        return {{}, "Cannot find " + endpoint.host + ": " + gai_strerror(error) + "."};
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(list, &freeaddrinfo);
    Resolver::Result result;
    for (const auto* each = list; each != nullptr && result.addresses.size() < Resolver::kMaxAddresses;
         each = each->ai_next) {
        auto& address = result.addresses.emplace_back();
        std::memcpy(&address.storage, each->ai_addr, each->ai_addrlen);
        address.size = each->ai_addrlen;
    }
    return result;
}

} // namespace

std::string address_text(const SocketAddress& address)
{
    std::array<char, NI_MAXHOST> text{};
    if (getnameinfo(address.generic(), address.size, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST)
        != 0) {
        return {};
    }
    const std::string result = text.data();
    const std::string mapped = "::ffff:";
    return result.starts_with(mapped) && result.find('.') != std::string::npos ? result.substr(mapped.size())
                                                                               : result;
}

std::optional<SocketAddress> numeric_address(const std::string& text, std::uint16_t port)
{
    const auto found = look_up({text, port}, AI_NUMERICHOST);
    return found.addresses.empty() ? std::nullopt : std::optional(found.addresses.front());
}

Resolver::Resolver(const Endpoint& endpoint) : search_(std::make_shared<Search>())
{
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        search_->result.error = "The system has no descriptor left.";
        return;
    }
    finished_ = Descriptor(ends[0]);
    search_->end = Descriptor(ends[1]);
    auto numeric = look_up(endpoint, AI_NUMERICHOST);
    if (!numeric.addresses.empty()) {
        search_->result = std::move(numeric);
        search_->end.reset();
        return;
    }
    try {
        std::thread([search = search_, endpoint] {
            auto result = look_up(endpoint, 0);
            const std::lock_guard lock(search->mutex);
            search->result = std::move(result);
            search->end.reset();
        }).detach();
    } catch (const std::system_error&) { // the only way in which the library tells that there is no thread
        search_->result.error = "The system has no thread left.";
        search_->end.reset();
    }
}

Resolver::Result Resolver::take()
{
    const std::lock_guard lock(search_->mutex);
    return std::move(search_->result);
}

} // namespace qz::client
