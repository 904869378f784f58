#include "support/TestMachine.h"

#include "platform/sqlite/SqliteProvider.h"
#include "server/HomeFiles.h"

namespace qz::test {

std::unique_ptr<platform::Timer> TestMachine::create_timer(platform::TimerEvents& events)
{
    auto timer = std::make_unique<ManualTimer>(events);
    timer_ = timer.get();
    return timer;
}

std::unique_ptr<platform::ServerSocket> TestMachine::create_server_socket(
    platform::ServerSocketEvents& events)
{
    return network_.create_server_socket(events);
}

std::unique_ptr<platform::ClientSockets> TestMachine::create_client_sockets(
    platform::ClientSocketEvents& events)
{
    return network_.create_client_sockets(events);
}

std::unique_ptr<platform::Connection> TestMachine::create_connection(
    const platform::ConnectionOptions& options)
{
    return std::make_unique<WatchedConnection>(platform::make_sqlite_connection(options, clock_), watch);
}

std::unique_ptr<platform::Mailer> TestMachine::create_mailer(platform::MailerEvents& events)
{
    return mail.create(events);
}

ForeignProgram& TestMachine::database()
{
    if (!database_) {
        database_.emplace(home() / server::kDatabaseFile, clock_);
    }
    return *database_;
}

void TestMachine::tick(int times)
{
    for (; times > 0; --times) {
        timer_->tick();
        loop_.run_pending();
    }
}

void TestEngine::start()
{
    engine.Server_Start();
    settle();
    events.list.clear();
}

MemoryPeer TestEngine::client(const std::string& address)
{
    auto peer = machine.network().connect(address);
    settle();
    peer.take();
    return peer;
}

MemoryPeer TestEngine::client_on_line(
    const std::string& name, const std::string& session, const std::string& address)
{
    auto peer = client(address);
    engine.connections.fill(name, session, peer.number(), address, machine.clock().now());
    return peer;
}

} // namespace qz::test
