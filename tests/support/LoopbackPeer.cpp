#include "support/LoopbackPeer.h"

#include <arpa/inet.h>
#include <linux/tcp.h> // the C library's tcp_info is too old
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace qz::test {

namespace {

void check(bool fine, const char* what)
{
    if (!fine) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

template <typename Address> void connect_to(int descriptor, const Address& address)
{
    check(connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0, "connect");
}

} // namespace

LoopbackPeer::LoopbackPeer(std::uint16_t port, bool ipv6, int receive_buffer)
    : descriptor_(socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    check(descriptor_ >= 0, "socket");
    if (receive_buffer > 0) {
        setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
    }
    const int on = 1;
    setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    if (ipv6) {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_port = htons(port);
        address.sin6_addr = in6addr_loopback;
        connect_to(descriptor_, address);
    } else {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connect_to(descriptor_, address);
    }
}

LoopbackPeer::LoopbackPeer(LoopbackPeer&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), ended_(other.ended_), was_reset_(other.was_reset_)
{
}

LoopbackPeer::~LoopbackPeer()
{
    close();
}

void LoopbackPeer::send(std::string_view bytes) const
{
    check(send_some(bytes) == bytes.size(), "send");
}

std::size_t LoopbackPeer::send_some(std::string_view bytes) const
{
    const auto sent = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent < 0 ? 0 : static_cast<std::size_t>(sent);
}

std::string LoopbackPeer::take(std::size_t most)
{
    std::string result;
    std::array<char, 65536> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): recv fills it
    while (!ended_ && result.size() < most) {
        const auto got =
            recv(descriptor_, buffer.data(), (std::min)(buffer.size(), most - result.size()), MSG_DONTWAIT);
        if (got > 0) {
            result.append(buffer.data(), static_cast<std::size_t>(got));
        } else if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;
        } else {
            ended_ = true;
            was_reset_ = got < 0;
        }
    }
    return result;
}

std::size_t LoopbackPeer::available() const
{
    int size = 0;
    check(ioctl(descriptor_, FIONREAD, &size) == 0, "ioctl");
    return static_cast<std::size_t>(size);
}

unsigned LoopbackPeer::segments() const
{
    tcp_info info{};
    socklen_t size = sizeof(info);
    check(getsockopt(descriptor_, IPPROTO_TCP, TCP_INFO, &info, &size) == 0, "getsockopt");
    return info.tcpi_data_segs_in;
}

void LoopbackPeer::finish_sending() const
{
    shutdown(descriptor_, SHUT_WR);
}

void LoopbackPeer::close()
{
    if (descriptor_ >= 0) {
        ::close(std::exchange(descriptor_, -1));
    }
}

void LoopbackPeer::reset()
{
    const linger at_once{1, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    close();
}

} // namespace qz::test
