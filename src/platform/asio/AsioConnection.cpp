#include "platform/asio/AsioConnection.h"

#include <boost/asio/buffer.hpp>
#include <utility>

#ifdef _WIN32
#include <ws2tcpip.h>
#else
#include <netinet/tcp.h>
#endif

namespace qz::platform {

namespace {

using boost::system::error_code;

bool would_block(const error_code& error)
{
    return error == asio::error::would_block || error == asio::error::try_again
        || error == asio::error::interrupted;
}

/// An option of TCP that Asio has no name for.
struct TcpOption {
    int option;
    int value;
    static int level(const tcp&) { return IPPROTO_TCP; }
    int name(const tcp&) const { return option; }
    const int* data(const tcp&) const { return &value; }
    static std::size_t size(const tcp&) { return sizeof(value); }
};

/// A peer that vanished without a word is noticed after about two minutes.
void set_options(TcpSocket& socket)
{
    error_code ignored; // a socket without one of the options works all the same
    socket.non_blocking(true, ignored);
    socket.set_option(tcp::no_delay(true), ignored);
    socket.set_option(asio::socket_base::keep_alive(true), ignored);
    socket.set_option(TcpOption{TCP_KEEPIDLE, 60}, ignored);
    socket.set_option(TcpOption{TCP_KEEPINTVL, 15}, ignored);
    socket.set_option(TcpOption{TCP_KEEPCNT, 4}, ignored);
}

/// Keeps the shared buffer for the length of a block.
class BorrowedBuffer {
public:
    explicit BorrowedBuffer(ConnectionOwner& owner) : owner_(owner), bytes_(owner.borrow_buffer()) { }
    ~BorrowedBuffer() { owner_.return_buffer(); }
    BorrowedBuffer(const BorrowedBuffer&) = delete;
    BorrowedBuffer& operator=(const BorrowedBuffer&) = delete;
    std::span<char> bytes() const { return bytes_; }

private:
    ConnectionOwner& owner_;
    std::span<char> bytes_;
};

} // namespace

AsioConnection::AsioConnection(
    ConnectionOwner& owner, AsioLoopCore& loop, TcpSocket socket, std::int16_t number)
    : owner_(owner), loop_(loop), socket_(std::move(socket)), number_(number)
{
    set_options(socket_);
}

void AsioConnection::start()
{
    wait_readable();
}

void AsioConnection::wait_readable()
{
    const bool held = !reading_ && phase_ == Phase::Open;
    if (held || waits_readable_ || peer_ended_ || !socket_.is_open()) {
        return;
    }
    waits_readable_ = true;
    socket_.async_wait(TcpSocket::wait_read, [self = shared_from_this()](const error_code& error) {
        self->waits_readable_ = false;
        if (!error && self->phase_ != Phase::Closed) {
            self->loop_.event([&] { self->read(); });
        }
    });
}

void AsioConnection::wait_writable()
{
    if (waits_writable_ || !socket_.is_open()) {
        return;
    }
    waits_writable_ = true;
    socket_.async_wait(TcpSocket::wait_write, [self = shared_from_this()](const error_code& error) {
        self->waits_writable_ = false;
        if (!error && self->phase_ != Phase::Closed) {
            // Not at once: something that this turn has said, and not stored yet, may stand in the output.
            self->loop_.event([&] { self->owner_.has_output(*self); });
        }
    });
}

void AsioConnection::read()
{
    if (!socket_.is_open()) {
        return;
    }
    // One buffer's worth at a time, so that a peer who floods the server waits its turn like the others.
    const BorrowedBuffer buffer(owner_);
    error_code error;
    const auto size = socket_.read_some(asio::buffer(buffer.bytes().data(), buffer.bytes().size()), error);
    if (error && !would_block(error)) {
        peer_ended_ = true;
        if (error != asio::error::eof) {
            close_socket();
        }
        lose();
        return;
    }
    if (phase_ == Phase::Open) { // what comes after a close is dropped
        deliver({buffer.bytes().data(), size});
    }
    wait_readable();
}

void AsioConnection::deliver(std::string_view bytes)
{
    delivering_ = true;
    while (phase_ == Phase::Open && reading_) {
        const auto unit = cutter_.next_unit(bytes);
        if (!unit) {
            break;
        }
        owner_.unit_arrived(number_, *unit);
    }
    delivering_ = false;
    if (phase_ == Phase::Open && !reading_) {
        held_.append(bytes);
    }
    if (phase_ == Phase::Open && cutter_.overflowed()) {
        drop();
    }
}

void AsioConnection::set_reading(bool reading)
{
    const bool goes_on = reading && !reading_;
    reading_ = reading;
    if (goes_on) {
        loop_.post([self = shared_from_this()] { self->go_on_reading(); });
    }
}

/// Nothing while older bytes are still being delivered, whose delivery goes on by itself.
void AsioConnection::go_on_reading()
{
    if (reading_ && !delivering_ && phase_ == Phase::Open) {
        deliver(std::exchange(held_, {}));
        wait_readable();
    }
}

void AsioConnection::send(std::string_view text)
{
    if (phase_ != Phase::Open || text.empty()) {
        return;
    }
    output_.append(text);
    owner_.has_output(*this);
    if (waits_writable_ && unsent() > owner_.limits().unsent) {
        drop();
    }
}

void AsioConnection::flush()
{
    if (!waits_writable_) {
        write();
    }
}

void AsioConnection::write()
{
    if (!socket_.is_open() || unsent() == 0) {
        return;
    }
    error_code error;
    const auto size = socket_.write_some(asio::buffer(output_.data() + written_, unsent()), error);
    if (error && !would_block(error)) {
        drop();
        return;
    }
    written_ += size;
    if (unsent() == 0) {
        written_all();
        return;
    }
    if (written_ >= output_.size() / 2) { // seldom enough to stay linear
        output_.erase(0, written_);
        written_ = 0;
    }
    if (phase_ == Phase::Open) {
        if (unsent() > owner_.limits().unsent) {
            drop();
            return;
        }
        if (size > 0 || deadline_ == SteadyClock::time_point::max()) {
            set_deadline(owner_.limits().stalled);
        }
    }
    wait_writable();
}

void AsioConnection::written_all()
{
    output_ = std::string{}; // gives the memory back
    written_ = 0;
    if (phase_ == Phase::Open) {
        deadline_ = SteadyClock::time_point::max();
    } else if (phase_ == Phase::Ending) {
        finish();
    }
}

void AsioConnection::drop()
{
    close_socket();
    lose();
}

/// The connection has ended by itself: tells the owner, in an event of its own, unless the owner ended it.
void AsioConnection::lose()
{
    if (phase_ == Phase::Open) {
        phase_ = Phase::Lost;
        deadline_ = SteadyClock::time_point::max();
        loop_.post([self = shared_from_this()] { self->tell_lost(); });
    } else if (phase_ != Phase::Lost) {
        finish();
    }
}

void AsioConnection::tell_lost()
{
    if (phase_ == Phase::Lost) {
        owner_.lost(number_);
        end();
    }
}

void AsioConnection::end()
{
    if (phase_ == Phase::Open || phase_ == Phase::Lost) {
        phase_ = Phase::Ending;
        set_deadline(owner_.limits().flush);
        finish();
    }
}

/// Takes the next step towards the end.
void AsioConnection::finish()
{
    if (!socket_.is_open() || (peer_ended_ && unsent() == 0)) {
        close_now();
    } else if (unsent() > 0) {
        if (!waits_writable_) {
            owner_.has_output(*this);
        }
    } else if (phase_ == Phase::Ending) {
        // Closing now would make the system reset the connection when the peer has sent something that was
        // not read, and the reset would overtake the last words that the peer is still to read.
        phase_ = Phase::Lingering;
        error_code ignored;
        socket_.shutdown(TcpSocket::shutdown_send, ignored);
        set_deadline(owner_.limits().linger);
        wait_readable();
    }
}

bool AsioConnection::check(SteadyClock::time_point now)
{
    if (now >= deadline_) {
        deadline_ = SteadyClock::time_point::max();
        drop();
    }
    return deadline_ != SteadyClock::time_point::max();
}

void AsioConnection::set_deadline(std::chrono::milliseconds time)
{
    deadline_ = SteadyClock::now() + time;
    owner_.has_deadline(*this);
}

void AsioConnection::close_now()
{
    if (phase_ != Phase::Closed) {
        abandon();
        owner_.gone(number_);
    }
}

void AsioConnection::abandon()
{
    close_socket();
    deadline_ = SteadyClock::time_point::max();
    phase_ = Phase::Closed;
}

void AsioConnection::close_socket()
{
    error_code ignored;
    socket_.close(ignored);
    output_ = std::string{};
    written_ = 0;
}

} // namespace qz::platform
