// Finds the addresses of a host without keeping the program waiting.
#pragma once

#include "client/Descriptor.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace qz::client {

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;

    const sockaddr* generic() const { return reinterpret_cast<const sockaddr*>(&storage); }
    sockaddr* generic() { return reinterpret_cast<sockaddr*>(&storage); }
};
/// An IPv4 address on an IPv6 socket is shown as IPv4, as the server shows it.
std::string address_text(const SocketAddress& address);
/// The address that the text is, without asking anybody; nothing for a name.
std::optional<SocketAddress> numeric_address(const std::string& text, std::uint16_t port);

struct Endpoint {
    std::string host; // a name or an address
    std::uint16_t port = 0;
};

/// One search. The system's own look-up blocks, so it runs on a thread of its own, which is left alone when
/// the search is given up: nobody can interrupt it.
class Resolver {
public:
    static constexpr std::size_t kMaxAddresses = 8;

    explicit Resolver(const Endpoint& endpoint);

    /// Readable as soon as the search is over.
    int descriptor() const { return finished_.number(); }
    struct Result {
        std::vector<SocketAddress> addresses; // in the order in which they are to be tried
        std::string error;                    // why there are none
    };
    /// To be called once, when the search is over.
    Result take();

private:
    struct Search;

    std::shared_ptr<Search> search_; // shared with the thread, which may outlive this object
    Descriptor finished_;            // its other end is closed by the thread
};

} // namespace qz::client
