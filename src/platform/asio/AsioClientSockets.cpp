#include "platform/asio/AsioClientSockets.h"

#include "base/EngineError.h"
#include "platform/asio/AsioConnection.h"
#include "platform/asio/AsioEventLoop.h"
#include "platform/asio/LocalAddress.h"

#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <array>
#include <cassert>
#include <limits>
#include <vector>

namespace qz::platform {

namespace {

constexpr int kMostSockets = (std::numeric_limits<std::int16_t>::max)();
/// Most bytes that one connection reads in one event.
constexpr std::size_t kReadBytes = helpers::UnitCutter::kMaxUnit;

/// Lets the next turn use the memory of this one's list.
template <typename Each> void give_back(std::vector<Each> done, std::vector<Each>& list)
{
    if (list.empty()) {
        done.clear();
        list.swap(done);
    }
}

} // namespace

class AsioClientSockets::Pool final : public std::enable_shared_from_this<Pool>,
                                      public ConnectionOwner,
                                      public TurnListener {
public:
    Pool(AsioEventLoop& loop, ClientSocketEvents& events, const ConnectionLimits& limits);
    virtual ~Pool();
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    void load(int count);
    std::int16_t count() const { return static_cast<std::int16_t>(slots_.size()); }
    std::int16_t state(std::int16_t socket) const;
    void accept(std::int16_t socket, std::int32_t request);
    std::string remote_address(std::int16_t socket) const;
    std::string local_address() { return local_address_.text(); }
    std::string request_address(std::int32_t request) const { return loop_.request_address(request); }
    /// None for a number without a connection.
    std::shared_ptr<AsioConnection> connection(std::int16_t socket) const;
    void drop_turn();

private:
    struct Slot {
        std::shared_ptr<AsioConnection> connection; // none while the number is free
        std::string address;                        // of the peer, also of the last one
    };

    const Slot* slot(std::int16_t socket) const;
    void forget_heard();
    void wait_for_deadlines();
    void check_deadlines();

    const ConnectionLimits& limits() const override { return limits_; }
    std::span<char> borrow_buffer() override;
    void return_buffer() override { --borrowed_; }
    void has_output(AsioConnection& connection) override;
    void has_deadline(AsioConnection& connection) override;
    void unit_arrived(std::int16_t socket, const std::string& unit) override;
    void lost(std::int16_t socket) override;
    void gone(std::int16_t socket) override;
    void turn_ended() override;

    AsioEventLoop& event_loop_;
    AsioLoopCore& loop_;
    ClientSocketEvents& events_;
    const ConnectionLimits limits_;
    std::vector<Slot> slots_;
    std::vector<std::shared_ptr<AsioConnection>> to_flush_; // everybody to whom this turn said something
    std::vector<std::shared_ptr<AsioConnection>> heard_;    // everybody whose words this turn works on
    std::vector<std::shared_ptr<AsioConnection>> with_deadline_;
    asio::steady_timer deadline_timer_;
    bool timer_runs_ = false;
    // One for an event and one for the event that runs while it yields.
    std::array<std::vector<char>, 2> buffers_;
    std::size_t borrowed_ = 0;
    LocalAddress local_address_;
};

AsioClientSockets::Pool::Pool(AsioEventLoop& loop, ClientSocketEvents& events, const ConnectionLimits& limits)
    : event_loop_(loop), loop_(loop.core()), events_(events), limits_(limits),
      deadline_timer_(loop_.context())
{
    event_loop_.add_listener(*this, TurnPhase::Output);
}

AsioClientSockets::Pool::~Pool()
{
    event_loop_.remove_listener(*this);
    for (const auto& each : slots_) {
        if (each.connection) {
            each.connection->abandon();
        }
    }
}

void AsioClientSockets::Pool::load(int count)
{
    const auto size = (std::min)(static_cast<int>(slots_.size()) + (std::max)(count, 0), kMostSockets);
    slots_.resize(static_cast<std::size_t>(size));
}

const AsioClientSockets::Pool::Slot* AsioClientSockets::Pool::slot(std::int16_t socket) const
{
    const auto at = static_cast<std::size_t>(socket);
    return socket < 0 || at >= slots_.size() ? nullptr : &slots_[at];
}

std::shared_ptr<AsioConnection> AsioClientSockets::Pool::connection(std::int16_t socket) const
{
    const auto* found = slot(socket);
    return found == nullptr ? nullptr : found->connection;
}

std::int16_t AsioClientSockets::Pool::state(std::int16_t socket) const
{
    const auto* found = slot(socket);
    if (found == nullptr) {
        return kSocketClosed;
    }
    if (socket == 0) {
        return kSocketReserved;
    }
    if (!found->connection) {
        return kSocketClosed;
    }
    return found->connection->open() ? kSocketConnected : kSocketClosing;
}

void AsioClientSockets::Pool::accept(std::int16_t socket, std::int32_t request)
{
    const auto name = "Socket " + std::to_string(socket);
    if (slot(socket) == nullptr) {
        throw runtime_error(RuntimeError::SubscriptOutOfRange, name + " is not in the pool");
    }
    if (state(socket) != kSocketClosed) {
        throw runtime_error(RuntimeError::NotAvailable, name + " cannot accept: it is in use");
    }
    auto taken = loop_.take_request(request);
    if (!taken) {
        throw runtime_error(RuntimeError::NotAvailable, name + " cannot accept: the request is gone");
    }
    auto& slot = slots_[static_cast<std::size_t>(socket)];
    slot.address = std::move(taken->address);
    slot.connection = std::make_shared<AsioConnection>(*this, loop_, std::move(taken->socket), socket);
    slot.connection->start();
}

std::string AsioClientSockets::Pool::remote_address(std::int16_t socket) const
{
    const auto* found = slot(socket);
    return found == nullptr ? std::string{} : found->address;
}

std::span<char> AsioClientSockets::Pool::borrow_buffer()
{
    assert(borrowed_ < buffers_.size());
    auto& buffer = buffers_[borrowed_++];
    buffer.resize(kReadBytes);
    return buffer;
}

void AsioClientSockets::Pool::has_output(AsioConnection& connection)
{
    if (connection.queued_for_flush) {
        return;
    }
    if (to_flush_.empty()) {
        loop_.ensure_turn_end();
    }
    connection.queued_for_flush = true;
    to_flush_.push_back(connection.shared_from_this());
}

void AsioClientSockets::Pool::turn_ended()
{
    forget_heard();
    auto flushed = std::exchange(to_flush_, {});
    for (const auto& each : flushed) {
        each->queued_for_flush = false;
        each->flush();
    }
    give_back(std::move(flushed), to_flush_);
}

/// But for those in the middle of whose unit the turn ended: the next one works on the rest of it.
void AsioClientSockets::Pool::forget_heard()
{
    std::erase_if(heard_, [](const auto& each) { return !(each->heard_in_turn = each->delivering()); });
}

void AsioClientSockets::Pool::drop_turn()
{
    for (const auto& each : std::exchange(heard_, {})) {
        each->heard_in_turn = false;
        each->drop();
    }
    for (const auto& each : std::exchange(to_flush_, {})) {
        each->queued_for_flush = false;
        each->drop();
    }
}

void AsioClientSockets::Pool::has_deadline(AsioConnection& connection)
{
    if (connection.queued_for_deadline) {
        return;
    }
    connection.queued_for_deadline = true;
    with_deadline_.push_back(connection.shared_from_this());
    wait_for_deadlines();
}

void AsioClientSockets::Pool::wait_for_deadlines()
{
    if (timer_runs_ || with_deadline_.empty()) {
        return;
    }
    timer_runs_ = true;
    // One timer for all of them: exact to a second, or finer for limits that are short themselves.
    const auto shortest = (std::min)({limits_.stalled, limits_.flush, limits_.linger});
    deadline_timer_.expires_after(
        std::clamp(shortest / 4, std::chrono::milliseconds(1), std::chrono::milliseconds(1000)));
    deadline_timer_.async_wait([weak = weak_from_this()](const boost::system::error_code&) {
        if (const auto self = weak.lock()) {
            self->timer_runs_ = false;
            self->loop_.event([&] { self->check_deadlines(); });
        }
    });
}

void AsioClientSockets::Pool::check_deadlines()
{
    const auto now = SteadyClock::now();
    for (auto& each : std::exchange(with_deadline_, {})) {
        each->queued_for_deadline = each->check(now);
        if (each->queued_for_deadline) {
            with_deadline_.push_back(std::move(each));
        }
    }
    wait_for_deadlines();
}

void AsioClientSockets::Pool::unit_arrived(std::int16_t socket, const std::string& unit)
{
    const auto& from = slots_[static_cast<std::size_t>(socket)].connection;
    if (!std::exchange(from->heard_in_turn, true)) {
        heard_.push_back(from);
    }
    events_.data_arrived(socket, unit);
}

void AsioClientSockets::Pool::lost(std::int16_t socket)
{
    events_.closed(socket);
}

void AsioClientSockets::Pool::gone(std::int16_t socket)
{
    slots_[static_cast<std::size_t>(socket)].connection.reset();
}

AsioClientSockets::AsioClientSockets(
    AsioEventLoop& loop, ClientSocketEvents& events, const ConnectionLimits& limits)
    : pool_(std::make_shared<Pool>(loop, events, limits))
{
}

AsioClientSockets::~AsioClientSockets() = default;

void AsioClientSockets::load(std::int16_t count, bool /*preserve*/)
{
    pool_->load(count);
}

std::int16_t AsioClientSockets::count() const
{
    return pool_->count();
}

std::int16_t AsioClientSockets::state(std::int16_t socket) const
{
    return pool_->state(socket);
}

std::string AsioClientSockets::request_address(std::int32_t request) const
{
    return pool_->request_address(request);
}

void AsioClientSockets::accept(std::int16_t socket, std::int32_t request)
{
    pool_->accept(socket, request);
}

std::string AsioClientSockets::remote_address(std::int16_t socket) const
{
    return pool_->remote_address(socket);
}

std::string AsioClientSockets::local_address() const
{
    return pool_->local_address();
}

void AsioClientSockets::send(std::int16_t socket, std::string_view text)
{
    if (const auto connection = pool_->connection(socket)) {
        connection->send(text);
    }
}

std::size_t AsioClientSockets::unsent(std::int16_t socket) const
{
    const auto connection = pool_->connection(socket);
    return connection ? connection->unsent() : 0;
}

void AsioClientSockets::set_reading(std::int16_t socket, bool reading)
{
    if (const auto connection = pool_->connection(socket)) {
        connection->set_reading(reading);
    }
}

void AsioClientSockets::close(std::int16_t socket)
{
    if (const auto connection = pool_->connection(socket)) {
        connection->end();
    }
}

void AsioClientSockets::drop_turn()
{
    pool_->drop_turn();
}

} // namespace qz::platform
