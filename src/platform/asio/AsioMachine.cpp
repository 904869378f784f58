#include "platform/asio/AsioMachine.h"

#include "platform/asio/AsioClientSockets.h"
#include "platform/asio/AsioServerSocket.h"
#include "platform/asio/AsioTimer.h"
#include "platform/curl/CurlMailer.h"
#include "platform/odbc/OdbcProvider.h"
#include "platform/sqlite/SqliteProvider.h"

namespace qz::platform {

std::unique_ptr<Timer> AsioMachine::create_timer(TimerEvents& events)
{
    return std::make_unique<AsioTimer>(loop_, events);
}

std::unique_ptr<ServerSocket> AsioMachine::create_server_socket(ServerSocketEvents& events)
{
    return std::make_unique<AsioServerSocket>(loop_, events);
}

std::unique_ptr<ClientSockets> AsioMachine::create_client_sockets(ClientSocketEvents& events)
{
    return std::make_unique<AsioClientSockets>(loop_, events);
}

std::unique_ptr<Mailer> AsioMachine::create_mailer(MailerEvents& events)
{
    return std::make_unique<CurlMailer>(loop_, events);
}

std::unique_ptr<Connection> AsioMachine::create_connection(const ConnectionOptions& options)
{
    auto traced = options;
    traced.trace = trace_;
    if (options.provider == Provider::Odbc) {
        return make_odbc_connection(traced);
    }
    return make_sqlite_connection(traced, clock_);
}

} // namespace qz::platform
