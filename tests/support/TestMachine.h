// A machine for one engine, made of the stand-ins: nothing moves until the test says so. Only the database is
// real, a file in a folder of its own.
#pragma once

#include "platform/Machine.h"
#include "platform/sodium/SodiumCrypto.h"
#include "server/Engine.h"
#include "support/ForeignProgram.h"
#include "support/ManualClock.h"
#include "support/ManualLoop.h"
#include "support/ManualTimer.h"
#include "support/MemorySockets.h"
#include "support/RecordingEvents.h"
#include "support/RecordingMailer.h"
#include "support/TemporaryFolder.h"
#include "support/WatchedConnection.h"

#include <memory>
#include <optional>
#include <string>

namespace qz::test {

class TestMachine final : public platform::Machine {
public:
    const std::filesystem::path& home() const override { return folder_.path(); }
    ManualClock& clock() { return clock_; }
    const Clock& clock() const override { return clock_; }
    helpers::Crypto& crypto() override { return crypto_; }
    ManualLoop& loop() override { return loop_; }
    std::unique_ptr<platform::Timer> create_timer(platform::TimerEvents& events) override;
    std::unique_ptr<platform::ServerSocket> create_server_socket(
        platform::ServerSocketEvents& events) override;
    std::unique_ptr<platform::ClientSockets> create_client_sockets(
        platform::ClientSocketEvents& events) override;
    std::unique_ptr<platform::Mailer> create_mailer(platform::MailerEvents& events) override;
    std::unique_ptr<platform::Connection> create_connection(
        const platform::ConnectionOptions& options) override;

    MemoryNetwork& network() { return network_; }
    /// The engine's database as another program sees it.
    ForeignProgram& database();
    MailRecord mail;

    /// Sees the statements of the engine's connections, and may fail them.
    StatementWatch watch;

    /// One tick of the housekeeping timer, and what follows from it. Needs a started engine.
    void tick(int times = 1);
    std::chrono::milliseconds timer_interval() const { return timer_->interval(); }

private:
    TemporaryFolder folder_;
    ManualClock clock_;
    platform::SodiumCrypto crypto_;
    ManualLoop loop_;
    MemoryNetwork network_{loop_, clock_};
    std::optional<ForeignProgram> database_;
    ManualTimer* timer_ = nullptr; // the engine's
};

/// One engine on a machine of its own.
struct TestEngine {
    ~TestEngine() { machine.watch = nullptr; } // the variables of the test, which it looks at, are gone

    TestMachine machine;
    RecordingEvents events;
    server::Engine engine{machine, events};

    /// Starts it and forgets the events so far.
    void start();
    /// A connected client whose session offer was taken.
    MemoryPeer client(const std::string& address = "192.0.2.10");
    /// A client whose connection record is filled.
    MemoryPeer client_on_line(
        const std::string& name, const std::string& session, const std::string& address = "192.0.2.10");
    void settle() { machine.loop().run_pending(); }
};

} // namespace qz::test
