// The listening socket and the client sockets in memory, and the peers that a test drives: they keep the same
// contract as the real ones, on a loop and a clock that stand still until the test moves them.
#pragma once

#include "base/Clock.h"
#include "platform/Sockets.h"
#include "platform/asio/AsioClientSockets.h"
#include "support/ManualLoop.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qz::test {

struct MemoryLink;
class MemoryClientSockets;
class MemoryServerSocket;

/// The far end of one connection. What it does reaches the server as an event of the loop.
class MemoryPeer {
public:
    MemoryPeer(ManualLoop& loop, std::shared_ptr<MemoryLink> link) : loop_(&loop), link_(std::move(link)) { }

    /// The bytes arrive in pieces of at most `piece` bytes, each an event of its own.
    void send(std::string_view bytes, std::size_t piece = SIZE_MAX);
    /// Everything that came since the last call.
    std::string take();
    /// The same, cut into the units of the protocol.
    std::vector<std::string> take_units();
    /// How many writes of the server have come.
    int writes() const;

    /// Takes nothing any more, not even the end of the connection, until it resumes.
    void stall();
    void resume();
    /// Ends its own side; it still hears the server.
    void finish();
    /// Is gone without a word.
    void vanish();

    /// The server took the connection.
    bool accepted() const;
    /// The server's end has come.
    bool ended() const;
    /// The number that the server gave the connection; 0 when it was not accepted.
    std::int16_t number() const;

private:
    ManualLoop* loop_;
    std::shared_ptr<MemoryLink> link_;
};

/// Makes the sockets and the connections between them. Outlives the sockets. Of several listening sockets
/// only the newest hears; several ports are not told apart.
class MemoryNetwork {
public:
    MemoryNetwork(ManualLoop& loop, const Clock& clock, platform::ConnectionLimits limits = {});
    MemoryNetwork(const MemoryNetwork&) = delete;
    MemoryNetwork& operator=(const MemoryNetwork&) = delete;
    ~MemoryNetwork();

    std::unique_ptr<platform::ServerSocket> create_server_socket(platform::ServerSocketEvents& events);
    std::unique_ptr<platform::ClientSockets> create_client_sockets(platform::ClientSocketEvents& events);

    /// A peer that connects; the server hears of it with the next turn. Refused when nobody listens then.
    MemoryPeer connect(const std::string& address = "192.0.2.10");
    /// Another program uses this port: listening on it fails.
    void occupy(std::uint16_t port) { occupied_port_ = port; }
    /// Port that is listened on, 0 when none is.
    std::uint16_t listening_port() const;

private:
    friend class MemoryClientSockets;
    friend class MemoryServerSocket;

    ManualLoop& loop_;
    const Clock& clock_;
    const platform::ConnectionLimits limits_;
    MemoryServerSocket* server_ = nullptr;
    std::map<std::int32_t, std::shared_ptr<MemoryLink>> requests_;
    std::int32_t last_request_ = 0;
    std::uint16_t occupied_port_ = 0;
};

} // namespace qz::test
