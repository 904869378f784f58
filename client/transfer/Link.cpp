#include "client/transfer/Link.h"

#include "client/Resolver.h"

#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <utility>

namespace qz::client::transfer {

namespace {

// Then the program's other work has its turn.
constexpr int kMostReads = 32;
constexpr int kMostPieces = 32;

bool is_only_later(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

} // namespace

Link::Link(Descriptor socket, Channel channel, MakeConversation make, const Clock& clock)
    : socket_(std::move(socket)), channel_(std::move(channel)), make_(std::move(make)), clock_(clock),
      moved_at_(clock.steady())
{
    const int yes = 1; // the last words of a piece shall not wait for more
    setsockopt(socket_.number(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

void Link::on_ready()
{
    if (state_ == State::Connecting) {
        finish_connect();
    }
    if (is_up()) {
        read();
    }
    if (is_up()) {
        work();
    }
    check_time();
}

void Link::finish_connect()
{
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(socket_.number(), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) {
        close(State::Broken);
        return;
    }
    SocketAddress peer;
    peer.size = sizeof peer.storage;
    if (getpeername(socket_.number(), peer.generic(), &peer.size) == 0) {
        state_ = State::Greeting;
        moved_at_ = clock_.steady();
    }
}

void Link::read()
{
    std::array<char, Channel::kMaxData> buffer; // not cleared: that would cost more than reading
    for (int i = 0; i < kMostReads && is_up(); ++i) {
        const auto size = ::recv(socket_.number(), buffer.data(), buffer.size(), 0);
        if (size < 0) {
            if (!is_only_later(errno)) {
                close(state_ == State::Parting ? State::Closed : State::Broken);
            }
            return;
        }
        if (size == 0) {
            close(state_ == State::Parting ? State::Closed : State::Broken);
            return;
        }
        if (state_ == State::Parting) {
            continue; // thrown away: closing with unread bytes would take the last words back
        }
        moved_at_ = clock_.steady();
        channel_.received({buffer.data(), static_cast<std::size_t>(size)}, [this](const Record& record) {
            begin();
            conversation_->take(record);
            return !conversation_->ending();
        });
        begin();
        if (channel_.state() == Channel::State::Failed) {
            close(State::Broken);
        }
        follow_conversation();
    }
}

/// The other side has proved who it is: the conversation begins.
void Link::begin()
{
    if (!conversation_ && channel_.state() == Channel::State::Open) {
        conversation_ = make_(channel_);
        conversation_->begin();
        state_ = State::Open;
    }
}

void Link::work()
{
    for (int i = 0; i < kMostPieces && state_ == State::Open && conversation_->has_work(); ++i) {
        conversation_->work();
        write();
        follow_conversation();
    }
    if (is_up()) {
        write();
    }
}

void Link::write()
{
    while (is_up() && !channel_.output().empty()) {
        const auto bytes = channel_.output();
        const auto size = ::send(socket_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (size < 0) {
            if (!is_only_later(errno)) {
                close(State::Broken);
            }
            return;
        }
        moved_at_ = state_ == State::Parting ? moved_at_ : clock_.steady();
        channel_.consume_output(static_cast<std::size_t>(size));
    }
    if (state_ == State::Parting && !shut_down_) {
        shut_down_ = true;
        ::shutdown(socket_.number(), SHUT_WR);
    }
}

void Link::follow_conversation()
{
    if (state_ == State::Open && conversation_->ending()) {
        state_ = State::Parting;
        moved_at_ = clock_.steady();
    }
}

void Link::check_time()
{
    follow_conversation(); // the program may have ended it
    if ((is_up() || state_ == State::Connecting) && clock_.steady() >= next_deadline()) {
        const bool works = state_ == State::Open && conversation_->has_work() && channel_.output().empty();
        if (!works) {
            close(state_ == State::Parting ? State::Closed : State::Broken);
        }
    }
}

TimePoint Link::next_deadline() const
{
    switch (state_) {
    case State::Connecting:
        return moved_at_ + kConnectTime;
    case State::Greeting:
        return moved_at_ + kGreetingTime;
    case State::Open:
        // What waits for nobody is to be gone on with at once, unless the socket has enough.
        return conversation_->has_work() && channel_.output().empty() ? clock_.steady()
                                                                      : moved_at_ + conversation_->patience();
    case State::Parting:
        return moved_at_ + kPartingTime;
    case State::Closed:
    case State::Broken:
        break;
    }
    return (TimePoint::max)();
}

void Link::add_watch(std::vector<Watch>& watches) const
{
    if (state_ == State::Connecting) {
        watches.push_back({socket_.number(), false, true});
    } else if (is_up()) {
        watches.push_back({socket_.number(), true, !channel_.output().empty()});
    }
}

void Link::close(State state)
{
    state_ = state;
    socket_.reset();
}

} // namespace qz::client::transfer
