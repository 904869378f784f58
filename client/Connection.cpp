#include "client/Connection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace qz::client {

namespace {

std::string error_text(int error)
{
    return std::generic_category().message(error) + ".";
}

bool is_only_later(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

} // namespace

Connection::Connection(
    Endpoint endpoint, Account account, helpers::Crypto& crypto, const Clock& clock, ClientEvents& events)
    : endpoint_(std::move(endpoint)), clock_(clock), core_(std::move(account), crypto, events)
{
}

void Connection::start()
{
    core_.start(clock_.steady());
    follow_core();
}

void Connection::stop()
{
    core_.stop();
    follow_core();
}

int Connection::descriptor() const
{
    return resolver_ ? resolver_->descriptor() : socket_.number();
}

bool Connection::wants_read() const
{
    return phase_ == Phase::Resolving || phase_ == Phase::Open;
}

bool Connection::wants_write() const
{
    return phase_ == Phase::Connecting || (phase_ == Phase::Open && !core_.output().empty());
}

std::optional<TimePoint> Connection::next_deadline() const
{
    const auto of_core = core_.next_deadline();
    return of_core && phase_ == Phase::Connecting ? (std::min)(*of_core, address_deadline_) : of_core;
}

void Connection::on_ready(bool readable, bool writable)
{
    core_.tick(clock_.steady());
    follow_core();
    if (phase_ == Phase::Resolving && readable) {
        take_addresses();
    } else if (phase_ == Phase::Connecting) {
        if (writable) {
            finish_connect();
        } else if (clock_.steady() >= address_deadline_) {
            last_error_ = error_text(ETIMEDOUT);
            connect_next();
        }
    } else if (phase_ == Phase::Open) {
        if (readable) {
            read();
        }
        if (phase_ == Phase::Open && is_current()) {
            write();
        }
    }
    follow_core();
}

/// Drops what belongs to an attempt that is over, and begins the one that is wanted.
void Connection::follow_core()
{
    while (!is_current()) {
        phase_ = Phase::Idle;
        resolver_.reset();
        socket_.reset();
        addresses_.clear();
        last_error_.clear();
        attempt_ = core_.attempt();
        if (attempt_ != 0) {
            resolve();
        }
    }
}

void Connection::resolve()
{
    phase_ = Phase::Resolving;
    resolver_ = std::make_unique<Resolver>(endpoint_);
    if (resolver_->descriptor() < 0) { // it failed before it began
        take_addresses();
    }
}

void Connection::take_addresses()
{
    auto result = resolver_->take();
    resolver_.reset();
    if (result.addresses.empty()) {
        fail(result.error);
        return;
    }
    addresses_ = std::move(result.addresses);
    std::reverse(addresses_.begin(), addresses_.end());
    connect_next();
}

void Connection::connect_next()
{
    while (!addresses_.empty()) {
        const auto address = addresses_.back();
        addresses_.pop_back();
        socket_.reset();
        socket_ = Descriptor(
            ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
        const auto* const generic = reinterpret_cast<const sockaddr*>(&address.storage);
        if (socket_.number() >= 0
            && (::connect(socket_.number(), generic, address.size) == 0 || errno == EINPROGRESS)) {
            phase_ = Phase::Connecting; // also when it stands already: the socket is writable then
            address_deadline_ = clock_.steady() + kAddressTime;
            return;
        }
        last_error_ = error_text(errno);
    }
    fail("Cannot connect to " + endpoint_.host + ": " + last_error_);
}

void Connection::finish_connect()
{
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(socket_.number(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
        error = errno;
    }
    SocketAddress peer;
    peer.size = sizeof peer.storage;
    auto* const generic = peer.generic();
    if (error == 0 && getpeername(socket_.number(), generic, &peer.size) != 0) {
        if (errno == ENOTCONN) {
            return; // not yet
        }
        error = errno;
    }
    if (error != 0) {
        last_error_ = error_text(error);
        connect_next();
        return;
    }
    open();
}

void Connection::open()
{
    phase_ = Phase::Open;
    addresses_.clear();
    const int yes = 1; // what is sent is small and somebody waits for it
    setsockopt(socket_.number(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    SocketAddress local;
    local.size = sizeof local.storage;
    getsockname(socket_.number(), reinterpret_cast<sockaddr*>(&local.storage), &local.size);
    core_.opened(address_text(local), clock_.steady());
}

void Connection::read()
{
    constexpr int kMostReads = 4; // then the program's other work has its turn
    std::array<char, std::size_t{16} * 1024> buffer{};
    // A listener may stop, and even start anew, in the middle.
    const auto attempt = attempt_;
    for (int i = 0; i < kMostReads && attempt == attempt_ && is_current(); ++i) {
        const auto size = ::recv(socket_.number(), buffer.data(), buffer.size(), 0);
        if (size > 0) {
            core_.received({buffer.data(), static_cast<std::size_t>(size)}, clock_.steady());
        } else if (size == 0) {
            fail("The server closed the connection.");
        } else {
            if (!is_only_later(errno)) {
                fail("The connection broke: " + error_text(errno));
            }
            return;
        }
    }
}

void Connection::write()
{
    while (is_current() && !core_.output().empty()) {
        const auto bytes = core_.output();
        const auto size = ::send(socket_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (size < 0) {
            if (!is_only_later(errno)) {
                fail("The connection broke: " + error_text(errno));
            }
            return;
        }
        core_.consume_output(static_cast<std::size_t>(size));
    }
}

void Connection::fail(const std::string& why)
{
    core_.closed(why, clock_.steady());
}

bool Connection::run_until(
    const std::function<bool()>& condition, std::chrono::milliseconds longest, EventSource* companion)
{
    using std::chrono::milliseconds;
    const auto end = clock_.steady() + longest;
    while (!condition()) {
        const auto deadline = next_deadline();
        const auto now = clock_.steady();
        if (!deadline || now >= end) {
            return false;
        }
        auto earliest = (std::min)(*deadline, end);
        if (companion != nullptr) {
            earliest = (std::min)(earliest, companion->next_deadline().value_or(end));
        }
        // Rounded up: waking too early would spin.
        constexpr milliseconds kLongestWait{60'000};
        wait(std::clamp(std::chrono::ceil<milliseconds>(earliest - now), milliseconds(0), kLongestWait),
            companion);
    }
    return true;
}

void Connection::wait(std::chrono::milliseconds longest, EventSource* companion)
{
    std::vector<Watch> watches{{descriptor(), wants_read(), wants_write()}};
    if (companion != nullptr) {
        companion->add_watches(watches);
    }
    std::vector<pollfd> waiting;
    for (const auto& watch : watches) {
        const int events = (watch.read ? POLLIN : 0) | (watch.write ? POLLOUT : 0);
        waiting.push_back({watch.descriptor, static_cast<short>(events), 0});
    }
    const int ready = ::poll(waiting.data(), waiting.size(), static_cast<int>(longest.count()));
    // A broken connection is reported whatever was asked for; reading and writing find out how it broke.
    const int events = ready > 0 ? waiting.front().revents : 0;
    const bool broken = (events & (POLLERR | POLLHUP)) != 0;
    on_ready(broken || (events & POLLIN) != 0, broken || (events & POLLOUT) != 0);
    if (companion != nullptr) {
        companion->on_ready();
    }
}

} // namespace qz::client
