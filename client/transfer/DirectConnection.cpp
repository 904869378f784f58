#include "client/transfer/DirectConnection.h"

#include <algorithm>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

namespace qz::client::transfer {

namespace {

/// A listening socket on all addresses of the machine.
Descriptor listener_of(int family, std::uint16_t port)
{
    Descriptor socket(::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
    SocketAddress address;
    if (family == AF_INET6) {
        const int no = 0; // IPv4, too
        setsockopt(socket.number(), IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof no);
        auto& any = reinterpret_cast<sockaddr_in6&>(address.storage);
        any.sin6_family = AF_INET6;
        any.sin6_port = htons(port);
        address.size = sizeof any;
    } else {
        auto& any = reinterpret_cast<sockaddr_in&>(address.storage);
        any.sin_family = AF_INET;
        any.sin_port = htons(port);
        address.size = sizeof any;
    }
    const int yes = 1;
    setsockopt(socket.number(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const bool listens = socket.number() >= 0 && ::bind(socket.number(), address.generic(), address.size) == 0
        && ::listen(socket.number(), DirectConnection::kMaxCandidates) == 0;
    return listens ? std::move(socket) : Descriptor();
}

std::uint16_t port_of(const Descriptor& socket)
{
    SocketAddress address;
    address.size = sizeof address.storage;
    getsockname(socket.number(), address.generic(), &address.size);
    return ntohs(address.storage.ss_family == AF_INET6
            ? reinterpret_cast<const sockaddr_in6&>(address.storage).sin6_port
            : reinterpret_cast<const sockaddr_in&>(address.storage).sin_port);
}

} // namespace

DirectConnection::DirectConnection(Plan plan, const Clock& clock) : plan_(std::move(plan)), clock_(clock) { }

std::optional<std::uint16_t> DirectConnection::listen(PortRange ports)
{
    for (std::uint32_t port = ports.first; port <= ports.last && listener_.number() < 0; ++port) {
        for (const int family : {AF_INET6, AF_INET}) {
            if (listener_.number() < 0) {
                listener_ = listener_of(family, static_cast<std::uint16_t>(port));
            }
        }
    }
    give_up_at_ = clock_.steady() + kAwaitTime;
    return listener_.number() < 0 ? std::nullopt : std::optional(port_of(listener_));
}

void DirectConnection::connect(std::uint16_t port)
{
    port_ = port;
    try_again();
}

void DirectConnection::try_again()
{
    next_attempt_.reset();
    const auto address = numeric_address(plan_.peer_address, port_);
    Descriptor socket(address
            ? ::socket(address->storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP)
            : -1);
    if (socket.number() < 0
        || (::connect(socket.number(), address->generic(), address->size) != 0 && errno != EINPROGRESS)) {
        lose_link();
        return;
    }
    link_ = std::make_unique<Link>(
        std::move(socket), Channel::connecting(plan_.keys, plan_.is_sender, ++attempt_), plan_.make, clock_);
}

void DirectConnection::on_ready()
{
    if (next_attempt_ && clock_.steady() >= *next_attempt_) {
        try_again();
    }
    if (listener_.number() >= 0) {
        accept();
        drive_candidates();
    }
    if (link_) {
        drive_link();
    }
    check_time();
}

/// Only the address that the server told may knock; everybody else is turned away unheard.
void DirectConnection::accept()
{
    while (candidates_.size() < kMaxCandidates) {
        SocketAddress peer;
        peer.size = sizeof peer.storage;
        Descriptor socket(
            ::accept4(listener_.number(), peer.generic(), &peer.size, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (socket.number() < 0) {
            return;
        }
        const auto expected = numeric_address(plan_.peer_address, 0);
        if (expected && address_text(*expected) == address_text(peer)) {
            candidates_.push_back(std::make_unique<Link>(std::move(socket),
                Channel::listening(plan_.keys, !plan_.is_sender, attempt_ + 1), plan_.make, clock_));
        }
    }
}

void DirectConnection::drive_candidates()
{
    for (auto& candidate : candidates_) {
        candidate->on_ready();
        if (candidate->conversation() == nullptr || candidate->attempt() <= attempt_) {
            continue;
        }
        // A newer connection than the one in use: the other side has noticed a break before this one did.
        attempt_ = candidate->attempt();
        link_ = std::move(candidate);
    }
    std::erase_if(candidates_, [](const auto& each) {
        return !each || each->conversation() != nullptr || each->state() == Link::State::Broken;
    });
}

void DirectConnection::drive_link()
{
    link_->on_ready();
    if (auto* const conversation = link_->conversation()) {
        was_open_ = true;
        delay_ = std::chrono::seconds(1);
        give_up_at_ = (TimePoint::max)();
        done_ = conversation->done();
        if (conversation->ending() && !ending_) {
            finish(*conversation->ending());
        }
    }
    if (link_->state() == Link::State::Closed) {
        link_.reset();
    } else if (link_->state() == Link::State::Broken) {
        link_.reset();
        lose_link();
    }
}

void DirectConnection::lose_link()
{
    if (ending_) {
        return;
    }
    if (!was_open_) {
        finish({Outcome::Unreachable});
        return;
    }
    const auto now = clock_.steady();
    if (give_up_at_ == (TimePoint::max)()) {
        give_up_at_ = now + (connects() ? kReturnTime : kAwaitReturnTime);
    }
    if (connects()) {
        next_attempt_ = now + delay_;
        delay_ = (std::min)(delay_ * 2, kMostDelay);
    }
}

void DirectConnection::check_time()
{
    if (!ending_ && clock_.steady() >= give_up_at_) {
        link_.reset();
        finish({was_open_ ? Outcome::Broken : Outcome::Unreachable});
    }
}

void DirectConnection::end(const Ending& ending)
{
    if (ending_) {
        return;
    }
    if (link_ && link_->conversation() != nullptr && link_->state() == Link::State::Open) {
        link_->conversation()->end(ending);
    } else {
        link_.reset();
    }
    finish(ending);
}

void DirectConnection::finish(const Ending& ending)
{
    ending_ = ending;
    listener_.reset();
    candidates_.clear();
    next_attempt_.reset();
}

void DirectConnection::add_watches(std::vector<Watch>& watches) const
{
    if (listener_.number() >= 0 && candidates_.size() < kMaxCandidates) {
        watches.push_back({listener_.number(), true, false});
    }
    for (const auto& candidate : candidates_) {
        candidate->add_watch(watches);
    }
    if (link_) {
        link_->add_watch(watches);
    }
}

TimePoint DirectConnection::next_deadline() const
{
    auto earliest =
        ending_ ? (TimePoint::max)() : (std::min)(give_up_at_, next_attempt_.value_or(give_up_at_));
    for (const auto& candidate : candidates_) {
        earliest = (std::min)(earliest, candidate->next_deadline());
    }
    return link_ ? (std::min)(earliest, link_->next_deadline()) : earliest;
}

} // namespace qz::client::transfer
