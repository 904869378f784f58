// The real machine with a home folder of its own, listening on whatever port of 127.0.0.1 is free.
#pragma once

#include "platform/asio/AsioMachine.h"
#include "support/RecordingMailer.h"
#include "support/TemporaryFolder.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace qz::test {

/// Listens on a port that the system chooses.
class AnyPortSocket final : public platform::ServerSocket {
public:
    explicit AnyPortSocket(std::unique_ptr<platform::ServerSocket> socket) : socket_(std::move(socket)) { }

    void close() override { socket_->close(); }
    void set_local_port(std::uint16_t /*port*/) override { socket_->set_local_port(0); }
    std::uint16_t local_port() const override { return socket_->local_port(); }
    void set_local_address(const std::string& /*address*/) override
    {
        socket_->set_local_address("127.0.0.1");
    }
    void listen() override { socket_->listen(); }
    std::string local_address() const override { return socket_->local_address(); }

private:
    std::unique_ptr<platform::ServerSocket> socket_;
};

/// The real machine, but for the port.
class LoopbackMachine final : public platform::Machine {
public:
    const std::filesystem::path& home() const override { return real_.home(); }
    const Clock& clock() const override { return real_.clock(); }
    helpers::Crypto& crypto() override { return real_.crypto(); }
    platform::AsioEventLoop& loop() override { return dynamic_cast<platform::AsioEventLoop&>(real_.loop()); }
    std::unique_ptr<platform::Timer> create_timer(platform::TimerEvents& events) override
    {
        return real_.create_timer(events);
    }
    std::unique_ptr<platform::ServerSocket> create_server_socket(
        platform::ServerSocketEvents& events) override
    {
        auto socket = std::make_unique<AnyPortSocket>(real_.create_server_socket(events));
        server_socket_ = socket.get();
        return socket;
    }
    std::unique_ptr<platform::ClientSockets> create_client_sockets(
        platform::ClientSocketEvents& events) override
    {
        return real_.create_client_sockets(events);
    }
    std::unique_ptr<platform::Connection> create_connection(
        const platform::ConnectionOptions& options) override
    {
        return real_.create_connection(options);
    }
    std::unique_ptr<platform::Mailer> create_mailer(platform::MailerEvents& events) override
    {
        return mail_.create(events); // no test sends a real mail
    }
    std::uint16_t port() const { return server_socket_->local_port(); }

private:
    TemporaryFolder folder_;
    platform::AsioMachine real_{folder_.path()};
    MailRecord mail_;
    AnyPortSocket* server_socket_ = nullptr; // the engine's
};

} // namespace qz::test
