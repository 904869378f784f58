#include "torture/Network.h"

#include "helpers/Frame.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <iterator>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace qz::torture {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMostWaiting = std::size_t{256} * 1024; // in one direction of a link
constexpr std::size_t kSlowBytes = 100;                       // each time

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void close_socket(int& descriptor)
{
    if (descriptor >= 0) {
        ::close(descriptor);
        descriptor = -1;
    }
}

/// @return false when the other end is gone.
bool read_some(int descriptor, std::string& into)
{
    std::array<char, 16384> buffer{};
    if (into.size() > kMostWaiting) {
        return true;
    }
    const auto size = recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size > 0) {
        into.append(buffer.data(), static_cast<std::size_t>(size));
        return true;
    }
    return size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINPROGRESS || errno == ENOTCONN);
}

bool write_some(int descriptor, std::string& from, std::size_t most)
{
    if (from.empty()) {
        return true;
    }
    const auto size =
        send(descriptor, from.data(), (std::min)(from.size(), most), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (size >= 0) {
        from.erase(0, static_cast<std::size_t>(size));
        return true;
    }
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINPROGRESS || errno == ENOTCONN;
}

/// A whole message in one frame: of one in several, a part that comes twice is the beginning of another.
bool is_message(const std::string& unit)
{
    const auto frame = helpers::parse_frame(unit);
    return frame && frame->header.chunk_count == 1 && frame->chunk.find("\nmsg ") != std::string_view::npos;
}

} // namespace

Network::Network(std::uint16_t server_port, std::mt19937_64& random)
    : random_(random), server_port_(server_port)
{
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    auto address = loopback(0);
    socklen_t size = sizeof address;
    auto* const raw = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, raw, size) != 0 || listen(listener_, 64) != 0
        || getsockname(listener_, raw, &size) != 0) {
        throw std::runtime_error("no port for the network");
    }
    port_ = ntohs(address.sin_port);
}

Network::~Network()
{
    close_socket(listener_);
    for (auto& link : links_) {
        close_socket(link.client);
        close_socket(link.server);
    }
}

void Network::watch(std::vector<pollfd>& descriptors) const
{
    descriptors.push_back({listener_, POLLIN, 0});
    for (const auto& link : links_) {
        for (const auto& [descriptor, output] : {std::pair{link.client, !link.to_client.empty()},
                 std::pair{link.server, !link.to_server.empty()}}) {
            const auto events = static_cast<short>(POLLIN | (output ? POLLOUT : 0));
            if (descriptor >= 0 && link.held_until == Time{} && link.slow_until == Time{}) {
                descriptors.push_back({descriptor, events, 0});
            }
        }
    }
}

void Network::accept_all()
{
    for (int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK); client >= 0;
         client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) {
        Link link;
        link.client = client;
        link.server = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        const auto address = loopback(server_port_);
        connect(link.server, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        links_.push_back(std::move(link));
        ++counts.links;
    }
}

void Network::work(Time now)
{
    accept_all();
    for (auto link = links_.begin(); link != links_.end();) {
        if (move(*link, now)) {
            ++link;
        } else {
            close_socket(link->client);
            close_socket(link->server);
            link = links_.erase(link);
        }
    }
}

/// @return false when the link has ended.
bool Network::move(Link& link, Time now)
{
    if (link.held_until > now) {
        return true;
    }
    if (link.lose_client) { // the server is left waiting a little longer, or until it finds out
        close_socket(link.client);
        link.lose_client = false;
        link.held_until = now + 2s;
        return true;
    }
    link.held_until = {};
    if (link.client < 0) {
        return false;
    }
    link.slow_until = link.slow_until > now ? link.slow_until : Time{};
    const auto most = link.slow_until == Time{} ? kMostWaiting : kSlowBytes;
    // What was said before an end still arrives, as far as the other side takes it.
    const bool client_there = from_client(link);
    const bool server_there = read_some(link.server, link.to_client);
    const bool written =
        write_some(link.server, link.to_server, most) && write_some(link.client, link.to_client, most);
    return written && client_there && (server_there || !link.to_client.empty());
}

bool Network::from_client(Link& link)
{
    std::string bytes;
    const bool there = link.to_server.size() > kMostWaiting || read_some(link.client, bytes);
    std::string_view rest = bytes;
    while (const auto unit = link.cutter.next_unit(rest)) {
        link.to_server += *unit;
        if (static_cast<int>(random_() % 100) < repeat_percent_ && is_message(*unit)) {
            link.to_server += *unit;
            ++counts.repeated;
        }
    }
    return there;
}

Network::Link* Network::any()
{
    std::vector<Link*> free;
    for (auto& link : links_) {
        if (link.client >= 0 && link.held_until == Time{} && link.slow_until == Time{}) {
            free.push_back(&link);
        }
    }
    return free.empty() ? nullptr : free[random_() % free.size()];
}

void Network::cut()
{
    if (auto* const link = any()) {
        close_socket(link->client);
        ++counts.cuts;
    }
}

void Network::leave_half_open(Time now)
{
    if (auto* const link = any()) {
        link->held_until = now + std::chrono::milliseconds(random_() % 1500);
        link->lose_client = true;
        ++counts.half_open;
    }
}

void Network::slow_down(Time now)
{
    if (auto* const link = any()) {
        link->slow_until = now + std::chrono::milliseconds(200 + random_() % 2000);
        ++counts.slow;
    }
}

void Network::heal()
{
    repeat_percent_ = 0;
    for (auto& link : links_) {
        link.slow_until = {};
    }
}

} // namespace qz::torture
