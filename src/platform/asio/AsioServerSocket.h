// The listening socket on the event loop.
#pragma once

#include "platform/Sockets.h"

#include <memory>

namespace qz::platform {

class AsioEventLoop;

/// When the process has no descriptor left, accepting pauses for a moment; the peers wait in the backlog.
class AsioServerSocket : public ServerSocket {
public:
    AsioServerSocket(AsioEventLoop& loop, ServerSocketEvents& events);
    ~AsioServerSocket() override;

    void close() override;
    void set_local_port(std::uint16_t port) override;
    std::uint16_t local_port() const override;
    void set_local_address(const std::string& address) override;
    /// Listens anew when it already does. Without an address it listens on IPv4 and, where the machine has
    /// it, IPv6. The text of an error names the port and says what to do.
    void listen() override;
    std::string local_address() const override;

private:
    class Listener;
    std::shared_ptr<Listener> listener_;
};

} // namespace qz::platform
