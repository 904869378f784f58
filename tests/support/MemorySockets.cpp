#include "support/MemorySockets.h"

#include "base/EngineError.h"
#include "helpers/UnitCutter.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace qz::test {

using platform::kSocketClosed;
using platform::kSocketClosing;
using platform::kSocketConnected;
using platform::kSocketReserved;

/// Both ends of one connection.
struct MemoryLink {
    enum class Phase { Requested, Open, Lost, Ending, Ended, Closed };
    using Time = std::chrono::steady_clock::time_point;

    std::string address;
    MemoryClientSockets* sockets = nullptr; // none before the accept and after the end
    std::int16_t number = 0;
    Phase phase = Phase::Requested;
    helpers::UnitCutter cutter;
    std::string output; // not taken by the peer
    std::string held;   // came while it was not to be read
    bool reading = true;
    Time deadline = Time::max();

    std::string received;
    int writes = 0;
    bool peer_stalls = false;
    bool peer_finished = false;
    bool peer_gone = false;
    bool server_ended = false;
    bool in_turn = false; // something came or was sent since the last turn ended
    bool delivering = false;
};

using Phase = MemoryLink::Phase;
using LinkPointer = std::shared_ptr<MemoryLink>;

class MemoryServerSocket final : public platform::ServerSocket {
public:
    MemoryServerSocket(MemoryNetwork& network, platform::ServerSocketEvents& events)
        : network_(network), events_(events)
    {
        network_.server_ = this;
    }
    ~MemoryServerSocket() override
    {
        if (network_.server_ == this) { // its successor may be there already
            network_.server_ = nullptr;
        }
    }

    void close() override { listening_ = false; }
    void set_local_port(std::uint16_t port) override { port_ = port; }
    std::uint16_t local_port() const override { return port_; }
    void set_local_address(const std::string& /*address*/) override { }
    void listen() override
    {
        if (port_ != 0 && port_ == network_.occupied_port_) {
            throw EngineError(98, kEngineSource,
                "Cannot listen on port " + std::to_string(port_) + ": Address already in use.");
        }
        listening_ = true;
    }
    std::string local_address() const override { return "192.0.2.1"; }

    bool listening() const { return listening_; }
    void request(std::int32_t number) { events_.connection_requested(number); }

private:
    MemoryNetwork& network_;
    platform::ServerSocketEvents& events_;
    std::uint16_t port_ = 0;
    bool listening_ = false;
};

class MemoryClientSockets final : public platform::ClientSockets, private platform::TurnListener {
public:
    MemoryClientSockets(MemoryNetwork& network, platform::ClientSocketEvents& events)
        : network_(network), events_(events)
    {
        network_.loop_.add_listener(*this, platform::TurnPhase::Output);
    }
    ~MemoryClientSockets() override;

    void load(std::int16_t count, bool /*preserve*/) override
    {
        const auto most = static_cast<std::size_t>((std::numeric_limits<std::int16_t>::max)());
        const auto more = static_cast<std::size_t>((std::max)(count, std::int16_t{0}));
        slots_.resize((std::min)(slots_.size() + more, most));
    }
    std::int16_t count() const override { return static_cast<std::int16_t>(slots_.size()); }
    std::int16_t state(std::int16_t socket) const override;
    std::string request_address(std::int32_t request) const override
    {
        const auto found = network_.requests_.find(request);
        return found == network_.requests_.end() ? std::string{} : found->second->address;
    }
    void accept(std::int16_t socket, std::int32_t request) override;
    std::string remote_address(std::int16_t socket) const override
    {
        return in_pool(socket) ? slots_[static_cast<std::size_t>(socket)].address : std::string{};
    }
    std::string local_address() const override { return "192.0.2.1"; }
    void send(std::int16_t socket, std::string_view text) override;
    std::size_t unsent(std::int16_t socket) const override
    {
        const auto found = link(socket);
        return found ? found->output.size() : 0;
    }
    void set_reading(std::int16_t socket, bool reading) override;
    void close(std::int16_t socket) override;
    void drop_turn() override;

    // The peer's doings, as events.
    void bytes_came(const LinkPointer& link, std::string_view bytes);
    void peer_ended(const LinkPointer& link);
    void write(const LinkPointer& link);

private:
    struct Slot {
        LinkPointer link; // none while the number is free
        std::string address;
    };

    bool in_pool(std::int16_t socket) const { return socket >= 0 && socket < count(); }
    LinkPointer link(std::int16_t socket) const
    {
        return in_pool(socket) ? slots_[static_cast<std::size_t>(socket)].link : nullptr;
    }
    void turn_ended() override;
    void lose(const LinkPointer& link);
    void tell_lost(const LinkPointer& link);
    void end(const LinkPointer& link);
    void finish(const LinkPointer& link);
    void close_now(const LinkPointer& link);

    MemoryNetwork& network_;
    platform::ClientSocketEvents& events_;
    std::vector<Slot> slots_;
};

MemoryClientSockets::~MemoryClientSockets()
{
    network_.loop_.remove_listener(*this);
    for (const auto& slot : slots_) {
        if (slot.link) {
            close_now(LinkPointer(slot.link));
        }
    }
}

std::int16_t MemoryClientSockets::state(std::int16_t socket) const
{
    if (socket == 0 && in_pool(0)) {
        return kSocketReserved;
    }
    const auto found = link(socket);
    if (!found) {
        return kSocketClosed;
    }
    return found->phase == Phase::Open ? kSocketConnected : kSocketClosing;
}

void MemoryClientSockets::accept(std::int16_t socket, std::int32_t request)
{
    if (!in_pool(socket)) {
        throw runtime_error(RuntimeError::SubscriptOutOfRange);
    }
    const auto found = network_.requests_.find(request);
    if (state(socket) != kSocketClosed || found == network_.requests_.end()) {
        throw runtime_error(RuntimeError::NotAvailable);
    }
    auto& slot = slots_[static_cast<std::size_t>(socket)];
    slot.link = found->second;
    slot.address = slot.link->address;
    slot.link->sockets = this;
    slot.link->number = socket;
    slot.link->phase = Phase::Open;
    network_.requests_.erase(found);
}

void MemoryClientSockets::send(std::int16_t socket, std::string_view text)
{
    const auto found = link(socket);
    if (!found || found->phase != Phase::Open) {
        return;
    }
    const bool blocked = found->deadline != MemoryLink::Time::max();
    found->output.append(text);
    found->in_turn = true;
    if (blocked && found->output.size() > network_.limits_.unsent) {
        lose(found);
    }
}

void MemoryClientSockets::close(std::int16_t socket)
{
    if (const auto found = link(socket)) {
        end(found);
    }
}

void MemoryClientSockets::set_reading(std::int16_t socket, bool reading)
{
    const auto found = link(socket);
    if (!found || std::exchange(found->reading, reading) == reading || !reading) {
        return;
    }
    network_.loop_.post([found] {
        if (found->sockets != nullptr) {
            found->sockets->bytes_came(found, std::exchange(found->held, {}));
        }
    });
}

void MemoryClientSockets::bytes_came(const LinkPointer& link, std::string_view bytes)
{
    while (link->phase == Phase::Open && link->reading) {
        const auto unit = link->cutter.next_unit(bytes);
        if (!unit) {
            break;
        }
        link->in_turn = true;
        link->delivering = true;
        events_.data_arrived(link->number, *unit);
        link->delivering = false;
    }
    if (link->phase == Phase::Open && !link->reading) {
        link->held.append(bytes);
    }
    if (link->phase == Phase::Open && link->cutter.overflowed()) {
        link->peer_gone = true;
        lose(link);
    }
}

void MemoryClientSockets::peer_ended(const LinkPointer& link)
{
    if (link->phase == Phase::Open) {
        lose(link);
    } else {
        finish(link);
    }
}

void MemoryClientSockets::turn_ended()
{
    const auto now = network_.clock_.steady();
    for (const auto& slot : slots_) {
        const auto each = slot.link; // stays alive while it ends
        if (!each) {
            continue;
        }
        each->in_turn = each->delivering; // the next turn works on the rest of its unit
        if (now >= each->deadline) {
            each->peer_gone = true;
            lose(each);
        } else {
            write(each);
        }
    }
}

void MemoryClientSockets::drop_turn()
{
    for (const auto& slot : slots_) {
        const auto each = slot.link;
        if (each && std::exchange(each->in_turn, false)) {
            each->output.clear();
            each->peer_gone = true;
            lose(each);
        }
    }
}

void MemoryClientSockets::write(const LinkPointer& link)
{
    if (link->output.empty()) {
        return;
    }
    if (link->peer_gone) {
        lose(link);
    } else if (!link->peer_stalls) {
        link->received += std::exchange(link->output, {});
        ++link->writes;
        if (link->phase == Phase::Open) {
            link->deadline = MemoryLink::Time::max();
        } else if (link->phase == Phase::Ending) {
            finish(link);
        }
    } else if (link->phase == Phase::Open) {
        if (link->output.size() > network_.limits_.unsent) {
            link->peer_gone = true;
            lose(link);
        } else if (link->deadline == MemoryLink::Time::max()) {
            link->deadline = network_.clock_.steady() + network_.limits_.stalled;
        }
    }
}

void MemoryClientSockets::lose(const LinkPointer& link)
{
    if (link->phase == Phase::Open) {
        link->phase = Phase::Lost;
        link->deadline = MemoryLink::Time::max();
        network_.loop_.post([link] {
            if (link->sockets != nullptr) {
                link->sockets->tell_lost(link);
            }
        });
    } else if (link->phase != Phase::Lost) {
        finish(link);
    }
}

void MemoryClientSockets::tell_lost(const LinkPointer& link)
{
    if (link->phase == Phase::Lost) {
        events_.closed(link->number);
        end(link);
    }
}

void MemoryClientSockets::end(const LinkPointer& link)
{
    if (link->phase == Phase::Open || link->phase == Phase::Lost) {
        link->phase = Phase::Ending;
        link->deadline = network_.clock_.steady() + network_.limits_.flush;
        finish(link);
    }
}

void MemoryClientSockets::finish(const LinkPointer& link)
{
    // The end of the turn writes what is pending.
    const bool written = link->output.empty();
    if (link->peer_gone || (link->peer_finished && written)) {
        close_now(link);
    } else if (written && link->phase == Phase::Ending) {
        link->phase = Phase::Ended;
        link->server_ended = true;
        link->deadline = network_.clock_.steady() + network_.limits_.linger;
        if (!link->peer_stalls) {
            MemoryPeer(network_.loop_, link).finish(); // as every client does when the server ends
        }
    }
}

void MemoryClientSockets::close_now(const LinkPointer& link)
{
    link->phase = Phase::Closed;
    link->sockets = nullptr;
    link->server_ended = true;
    slots_[static_cast<std::size_t>(link->number)].link.reset();
}

void MemoryPeer::send(std::string_view bytes, std::size_t piece)
{
    for (std::size_t at = 0; at < bytes.size(); at += (std::min)(piece, bytes.size() - at)) {
        loop_->post([link = link_, part = std::string(bytes.substr(at, piece))] {
            if (link->sockets != nullptr) {
                link->sockets->bytes_came(link, part);
            }
        });
    }
}

std::string MemoryPeer::take()
{
    return std::exchange(link_->received, {});
}

std::vector<std::string> MemoryPeer::take_units()
{
    const auto text = take();
    std::string_view bytes = text;
    helpers::UnitCutter cutter;
    std::vector<std::string> units;
    while (auto unit = cutter.next_unit(bytes)) {
        units.push_back(std::move(*unit));
    }
    return units;
}

int MemoryPeer::writes() const
{
    return link_->writes;
}

void MemoryPeer::stall()
{
    link_->peer_stalls = true;
}

void MemoryPeer::resume()
{
    link_->peer_stalls = false;
    loop_->post([] {}); // the end of its turn writes
    if (link_->server_ended) {
        finish();
    }
}

void MemoryPeer::finish()
{
    loop_->post([link = link_] {
        link->peer_finished = true;
        if (link->sockets != nullptr) {
            link->sockets->peer_ended(link);
        }
    });
}

void MemoryPeer::vanish()
{
    loop_->post([link = link_] {
        link->peer_gone = true;
        if (link->sockets != nullptr) {
            link->sockets->peer_ended(link);
        }
    });
}

bool MemoryPeer::accepted() const
{
    return link_->number != 0;
}

bool MemoryPeer::ended() const
{
    return link_->server_ended;
}

std::int16_t MemoryPeer::number() const
{
    return link_->number;
}

MemoryNetwork::MemoryNetwork(ManualLoop& loop, const Clock& clock, platform::ConnectionLimits limits)
    : loop_(loop), clock_(clock), limits_(limits)
{
}

MemoryNetwork::~MemoryNetwork() = default;

std::unique_ptr<platform::ServerSocket> MemoryNetwork::create_server_socket(
    platform::ServerSocketEvents& events)
{
    return std::make_unique<MemoryServerSocket>(*this, events);
}

std::unique_ptr<platform::ClientSockets> MemoryNetwork::create_client_sockets(
    platform::ClientSocketEvents& events)
{
    return std::make_unique<MemoryClientSockets>(*this, events);
}

MemoryPeer MemoryNetwork::connect(const std::string& address)
{
    auto link = std::make_shared<MemoryLink>();
    link->address = address;
    loop_.post([this, link] {
        const auto number = ++last_request_;
        requests_.emplace(number, link);
        if (server_ != nullptr && server_->listening()) {
            server_->request(number);
        }
        if (requests_.erase(number) > 0) {
            link->server_ended = true; // nobody accepted it
        }
    });
    return {loop_, link};
}

std::uint16_t MemoryNetwork::listening_port() const
{
    return server_ != nullptr && server_->listening() ? server_->local_port() : std::uint16_t{0};
}

} // namespace qz::test
