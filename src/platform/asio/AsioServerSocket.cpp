#include "platform/asio/AsioServerSocket.h"

#include "base/EngineError.h"
#include "platform/asio/AsioEventLoop.h"
#include "platform/asio/AsioLoopCore.h"
#include "platform/asio/LocalAddress.h"

#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/steady_timer.hpp>

#include <string>

namespace qz::platform {

namespace {

using boost::system::error_code;
using Acceptor = asio::basic_socket_acceptor<tcp, IoExecutor>;

constexpr int kBacklog = 4096; // the system may bound it further
constexpr int kAcceptsPerEvent = 16;
constexpr std::chrono::milliseconds kPause{100};

EngineError listen_error(const error_code& error, std::uint16_t port, const std::string& address)
{
    std::string text =
        "Cannot listen on port " + std::to_string(port) + (address.empty() ? "" : " of address " + address);
    text += ": " + error.message() + ".";
    if (error == asio::error::address_in_use) {
        text += " Another program, or another server, uses this port: stop it or choose another"
                " ListeningPort.";
    } else if (error == asio::error::access_denied) {
        text += " This account may not open this port: choose a ListeningPort above 1023 or grant the right.";
    } else if (error == asio::error::invalid_argument || error.value() == EADDRNOTAVAIL) {
        text += " This machine has no such address: correct ListenAddress or leave it empty.";
    }
    return {error.value(), kEngineSource, text};
}

} // namespace

/// Lives as long as the server socket or a wait that has not come back.
class AsioServerSocket::Listener : public std::enable_shared_from_this<Listener> {
public:
    Listener(AsioLoopCore& loop, ServerSocketEvents& events)
        : loop_(loop), events_(events), acceptor_(loop.context()), pause_(loop.context())
    {
    }

    void close()
    {
        ++listening_; // a wait that has already come back finds itself outdated
        error_code ignored;
        acceptor_.close(ignored);
        pause_.cancel();
    }

    void listen()
    {
        close();
        error_code error;
        if (address.empty()) {
            // One socket serves both families; without IPv6 in the kernel there is IPv4 alone.
            error = open({asio::ip::address_v6::any(), port});
            if (error == asio::error::address_family_not_supported || error.value() == EADDRNOTAVAIL) {
                error = open({asio::ip::address_v4::any(), port});
            }
        } else {
            const auto parsed = asio::ip::make_address(address, error);
            if (!error) {
                error = open({parsed, port});
            }
        }
        if (error) {
            close();
            throw listen_error(error, port, address);
        }
        wait();
    }

    std::uint16_t local_port() const
    {
        error_code error;
        const auto endpoint = acceptor_.local_endpoint(error);
        return error ? port : endpoint.port();
    }

    std::uint16_t port = 0;
    std::string address;
    LocalAddress local_address;

private:
    error_code open(const tcp::endpoint& endpoint)
    {
        close();
        error_code error;
        const auto step = [&error](auto&& operation) {
            if (!error) {
                operation();
            }
        };
        step([&] { acceptor_.open(endpoint.protocol(), error); });
#ifndef _WIN32 // there the option would let two programs listen on one port
        step([&] { acceptor_.set_option(asio::socket_base::reuse_address(true), error); });
#endif
        step([&] {
            if (endpoint.address().is_v6() && endpoint.address().is_unspecified()) {
                acceptor_.set_option(asio::ip::v6_only(false), error);
            }
        });
        step([&] { acceptor_.bind(endpoint, error); });
        step([&] { acceptor_.listen(kBacklog, error); });
        step([&] { acceptor_.non_blocking(true, error); });
        return error;
    }

    auto when_still_listening()
    {
        return [self = shared_from_this(), listening = listening_](const error_code& error) {
            if (!error && listening == self->listening_) {
                self->accept_some();
            }
        };
    }

    void wait()
    {
        acceptor_.async_wait(asio::socket_base::wait_read, when_still_listening());
    }

    void accept_some()
    {
        const auto listening = listening_;
        for (int i = 0; i < kAcceptsPerEvent && listening == listening_; ++i) {
            error_code error;
            TcpSocket socket(loop_.context().get_executor());
            tcp::endpoint peer;
            acceptor_.accept(socket, peer, error);
            if (error == asio::error::would_block || error == asio::error::try_again) {
                break;
            }
            if (error && error != asio::error::connection_aborted && error != asio::error::interrupted) {
                // No descriptor or no memory left. The request stays in the backlog, so waiting for it
                // would come back at once.
                pause();
                return;
            }
            if (!error) {
                request({std::move(socket), address_text(peer.address())});
            }
        }
        if (listening == listening_) {
            wait();
        }
    }

    void request(ConnectionRequest request)
    {
        const auto number = loop_.add_request(std::move(request));
        loop_.event([&] { events_.connection_requested(number); });
        loop_.take_request(number); // nobody accepted it: closes it
    }

    void pause()
    {
        pause_.expires_after(kPause);
        pause_.async_wait(when_still_listening());
    }

    AsioLoopCore& loop_;
    ServerSocketEvents& events_;
    Acceptor acceptor_;
    asio::steady_timer pause_;
    std::uint64_t listening_ = 0; // counts the calls of listen and close
};

AsioServerSocket::AsioServerSocket(AsioEventLoop& loop, ServerSocketEvents& events)
    : listener_(std::make_shared<Listener>(loop.core(), events))
{
}

AsioServerSocket::~AsioServerSocket()
{
    listener_->close();
}

void AsioServerSocket::close()
{
    listener_->close();
}

void AsioServerSocket::set_local_port(std::uint16_t port)
{
    listener_->port = port;
}

std::uint16_t AsioServerSocket::local_port() const
{
    return listener_->local_port();
}

void AsioServerSocket::set_local_address(const std::string& address)
{
    listener_->address = address;
}

void AsioServerSocket::listen()
{
    listener_->listen();
}

std::string AsioServerSocket::local_address() const
{
    return listener_->local_address.text();
}

} // namespace qz::platform
