#include "net/SocketCloser.h"

#include "base/Guarded.h"

namespace qz::net {

SocketCloser::SocketCloser(ConnectionTable& connections, SocketPool& pool, ChunkStore& chunks,
    const Clock& clock, ConnectionEvents& events, Journal& journal)
    : connections_(connections), pool_(pool), chunks_(chunks), clock_(clock), events_(events),
      journal_(journal)
{
}

void SocketCloser::SocketClosing(std::int16_t socket)
{
    guarded(journal_, "SocketClosing", no_address, [&] {
        if (sockets_ == nullptr) {
            return;
        }
        sockets_->close(socket);
        pool_.touch(socket);
        chunks_.drop(socket);
        events_.left(socket);
        const auto user = connections_.release(socket, clock_.now());
        if (!user.empty()) {
            events_.released(user, pool_.get_RemoteAddress(socket), socket);
        }
        events_.close_finished();
    });
}

void SocketCloser::close_all()
{
    close_where([](const ConnectionRecord&) { return true; });
}

void SocketCloser::CheckConnectionUp()
{
    guarded(journal_, "CheckConnectionUp", no_address, [&] {
        close_where([&](const ConnectionRecord& record) {
            return sockets_->state(record.Socket) != platform::kSocketConnected;
        });
    });
}

/// By number, not by reference: closing may yield, and the table may change in the middle of the walk.
template <typename Condition> void SocketCloser::close_where(Condition&& condition)
{
    for (std::size_t i = 0; i < connections_.records().size(); ++i) { // NOLINT(modernize-loop-convert)
        const auto& record = connections_.records()[i];
        if (record.OnLine && condition(record)) {
            SocketClosing(record.Socket);
        }
    }
}

} // namespace qz::net
