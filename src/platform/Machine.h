// What one engine gets from the machine that it runs on. Hosts pass the real one, tests one of their own.
#pragma once

#include "base/Clock.h"
#include "helpers/Crypto.h"
#include "platform/EventLoop.h"
#include "platform/Mailer.h"
#include "platform/Sockets.h"
#include "platform/Timer.h"
#include "platform/database/Connection.h"
#include "platform/database/StatementTrace.h"

#include <filesystem>
#include <memory>
#include <string>

namespace qz::platform {

enum class Provider { Embedded, Odbc };
enum class Durability {
    Process, // survives a killed process
    Power,   // also a power loss: one flush per turn
};

enum class DatabaseAccess {
    ReadWrite,
    Read, // of the embedded database: nothing is made, brought to a newer schema, or written
};

struct ConnectionOptions {
    Provider provider = Provider::Embedded;
    Durability durability = Durability::Process;
    std::filesystem::path database_file; // of the embedded provider
    DatabaseOverrides overrides;         // outlive the connection
    DatabaseAccess access = DatabaseAccess::ReadWrite;
    std::shared_ptr<StatementTrace> trace = {}; // hears of each statement; null: nobody
};

/// Makes the components. What it makes must not outlive it; the interfaces passed in must outlive what is
/// made.
class Machine {
public:
    Machine() = default;
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    virtual ~Machine() = default;

    /// The folder of the engine's files: settings, key, database, logs.
    virtual const std::filesystem::path& home() const = 0;
    virtual const Clock& clock() const = 0;
    virtual helpers::Crypto& crypto() = 0;
    virtual EventLoop& loop() = 0;
    virtual std::unique_ptr<Timer> create_timer(TimerEvents& events) = 0;
    virtual std::unique_ptr<ServerSocket> create_server_socket(ServerSocketEvents& events) = 0;
    virtual std::unique_ptr<ClientSockets> create_client_sockets(ClientSocketEvents& events) = 0;
    virtual std::unique_ptr<Mailer> create_mailer(MailerEvents& events) = 0;
    /// A closed connection.
    virtual std::unique_ptr<Connection> create_connection(const ConnectionOptions& options) = 0;
};

} // namespace qz::platform
