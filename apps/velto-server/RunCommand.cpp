#include "RunCommand.h"

#include "HomeLock.h"
#include "HomeStore.h"
#include "HostEvents.h"
#include "SignalWatcher.h"
#include "StatusKeeper.h"
#include "platform/asio/AsioMachine.h"
#include "server/Main.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

namespace velto {

namespace {

/// Time for a graceful end, from the first signal on. The shutdown waits for two ticks at most.
constexpr std::chrono::seconds kTimeToEnd(10);

/// Says in one line what is wrong with the database, before the engine says it in many.
void require_database(const Home& home)
{
    const HomeStore store(home);
}

void set_up_log()
{
    const bool plain = std::getenv("NO_COLOR") != nullptr; // NOLINT(concurrency-mt-unsafe): before any thread
    const auto color = plain ? spdlog::color_mode::never : spdlog::color_mode::automatic;
    spdlog::set_default_logger(spdlog::stderr_color_mt("velto-server", color));
    spdlog::set_pattern("%Y-%m-%d %H:%M:%S %^%l%$ %v");
}

std::unique_ptr<RunEvents> make_events(const RunOptions& options, qz::platform::EventLoop& loop)
{
    if (options.events) {
        return std::make_unique<JsonEvents>(loop);
    }
    return std::make_unique<LoggedEvents>(loop);
}

/// Gives the graceful end its time, then stops the loop.
class Deadline final : public qz::platform::TimerEvents {
public:
    explicit Deadline(qz::platform::Machine& machine)
        : loop_(machine.loop()), timer_(machine.create_timer(*this))
    {
    }
    void begin()
    {
        timer_->set_interval(kTimeToEnd);
        timer_->set_enabled(true);
    }
    void timer_ticked() override
    {
        spdlog::error("the server did not shut down in time; it is stopped now");
        loop_.stop();
    }

private:
    qz::platform::EventLoop& loop_;
    std::unique_ptr<qz::platform::Timer> timer_;
};

} // namespace

Exit run_server(const Home& home, const RunOptions& options)
{
    home.require_initialised();
    const HomeLock lock(home);
    require_database(home);
    set_up_log();
    std::signal(SIGPIPE, SIG_IGN); // a reader of our output that goes away must not end the server
    qz::platform::AsioMachine machine(home.folder());
    const auto events = make_events(options, machine.loop());
    auto main = std::make_unique<qz::server::Main>(machine, *events);
    auto status = std::make_unique<StatusKeeper>(home, machine, *main);
    Deadline deadline(machine);
    const SignalWatcher signals([&](int received) {
        machine.loop().post([&, received] {
            if (received > 1) {
                machine.loop().stop(); // asked twice: at once
                return;
            }
            deadline.begin();
            main->Server_End();
        });
    });
    machine.loop().post([&] {
        if (main->ConnectionTest() == main->get_ConnectionOK()) {
            main->Server_Start();
        }
        if (!events->has_started()) {
            machine.loop().stop();
            return;
        }
        status->start();
    });
    machine.loop().run();
    status.reset();
    main.reset();
    if (!events->has_started()) {
        throw CommandError(Exit::Failed,
            "the server could not start; the lines above say why\nLook the home over with: velto-server "
            "check --home "
                + home.folder().string());
    }
    return events->has_shut_down() ? Exit::Done : Exit::Failed;
}

} // namespace velto
