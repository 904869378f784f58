// The machine that the daemon runs on: everything real.
#pragma once

#include "platform/Machine.h"
#include "platform/SystemClock.h"
#include "platform/asio/AsioEventLoop.h"
#include "platform/sodium/SodiumCrypto.h"

#include <filesystem>

namespace qz::platform {

class AsioMachine final : public Machine {
public:
    /// @param trace  hears of each statement on the connections that are made; null: nobody.
    explicit AsioMachine(std::filesystem::path home, std::shared_ptr<StatementTrace> trace = {})
        : home_(std::move(home)), trace_(std::move(trace))
    {
    }

    const std::filesystem::path& home() const override { return home_; }
    const Clock& clock() const override { return clock_; }
    helpers::Crypto& crypto() override { return crypto_; }
    EventLoop& loop() override { return loop_; }
    std::unique_ptr<Timer> create_timer(TimerEvents& events) override;
    std::unique_ptr<ServerSocket> create_server_socket(ServerSocketEvents& events) override;
    std::unique_ptr<ClientSockets> create_client_sockets(ClientSocketEvents& events) override;
    std::unique_ptr<Mailer> create_mailer(MailerEvents& events) override;
    std::unique_ptr<Connection> create_connection(const ConnectionOptions& options) override;

private:
    std::filesystem::path home_;
    std::shared_ptr<StatementTrace> trace_;
    SystemClock clock_;
    SodiumCrypto crypto_;
    AsioEventLoop loop_;
};

} // namespace qz::platform
