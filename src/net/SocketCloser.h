// SocketClosing: the only way the server ends a client connection, and what follows when a client ends one.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "net/ChunkStore.h"
#include "net/ConnectionTable.h"
#include "net/NetEvents.h"
#include "net/SocketPool.h"
#include "platform/Sockets.h"

#include <cstdint>

namespace qz::net {

class SocketCloser {
public:
    SocketCloser(ConnectionTable& connections, SocketPool& pool, ChunkStore& chunks, const Clock& clock,
        ConnectionEvents& events, Journal& journal);

    void use(platform::ClientSockets* sockets) { sockets_ = sockets; }

    /// Closes the socket, releases its records, and tells what was released.
    void SocketClosing(std::int16_t socket);
    /// Closes every on-line connection, in table order.
    void close_all();
    /// Closes every on-line connection whose socket is not connected any more.
    void CheckConnectionUp();

private:
    template <typename Condition> void close_where(Condition&& condition);

    ConnectionTable& connections_;
    SocketPool& pool_;
    ChunkStore& chunks_;
    const Clock& clock_;
    ConnectionEvents& events_;
    Journal& journal_;
    platform::ClientSockets* sockets_ = nullptr;
};

} // namespace qz::net
