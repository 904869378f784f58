#include "RunCommand.h"

#include "CheckCommand.h"
#include "HomeLock.h"
#include "HomeStore.h"
#include "HostEvents.h"
#include "ServiceManager.h"
#include "SignalWatcher.h"
#include "SqlTrace.h"
#include "StatusKeeper.h"
#include "helpers/ServerCommandNames.h"
#include "platform/asio/AsioMachine.h"
#include "server/Main.h"

#include <chrono>
#include <csignal>
#include <memory>
#include <string>

namespace velto {

namespace {

/// Time for a graceful end, from the first signal on. The shutdown waits for two ticks at most.
constexpr std::chrono::seconds kTimeToEnd(10);

/// A setting that was meant otherwise must not start a server with its safeguards off.
void require_sound(const Home& home, HostLog& log)
{
    const auto findings = look_over(home);
    findings.write_to(log);
    if (const auto errors = findings.count(Findings::Weight::Error); errors > 0) {
        throw CommandError(Exit::Configuration,
            "the server was not started: " + std::to_string(errors) + (errors == 1 ? " error" : " errors")
                + " must be mended first, see the lines above\nLook the home over with: velto-server check "
                  "--home "
                + home.folder().string());
    }
}

std::unique_ptr<RunEvents> make_events(const RunOptions& options, qz::platform::EventLoop& loop, HostLog& log)
{
    if (options.events) {
        return std::make_unique<JsonEvents>(loop);
    }
    return std::make_unique<LoggedEvents>(loop, log);
}

/// One run of the server: its start, what signals do to it, its end. All on the loop's thread, but for the
/// coming in of signals.
class ServerRun final : private qz::platform::TimerEvents, private qz::platform::TurnListener {
public:
    ServerRun(const Home& home, const RunOptions& options, HostLog& log)
        : home_(home), log_(log), trace_(options.trace_sql ? std::make_shared<SqlTrace>(log) : nullptr),
          machine_(home.folder(), trace_.trace), events_(make_events(options, machine_.loop(), log)),
          main_(std::make_unique<qz::server::Main>(machine_, *events_)),
          status_(std::make_unique<StatusKeeper>(home, machine_, *main_, log)),
          time_to_end_(machine_.create_timer(*this)),
          signals_([this](int signal) { machine_.loop().post([this, signal] { heard(signal); }); })
    {
    }

    Exit run()
    {
        machine_.loop().post([this] { start(); });
        machine_.loop().add_listener(*this, qz::platform::TurnPhase::Commit);
        if (!trace_.trace) { // of a server that hangs in a statement, the lines before it must be there
            log_.begin_to_hold();
        }
        machine_.loop().run();
        log_.end_holding();
        machine_.loop().remove_listener(*this);
        service_manager::tell_stopping();
        status_.reset();
        main_.reset();
        if (!events_->has_started()) {
            throw CommandError(Exit::Failed,
                "the server could not start; the lines above say why\nLook the home over with: velto-server "
                "check --home "
                    + home_.folder().string());
        }
        return events_->has_shut_down() ? Exit::Done : Exit::Failed;
    }

private:
    void start()
    {
        if (main_->ConnectionTest() == main_->get_ConnectionOK()) {
            main_->Server_Start();
        }
        if (!events_->has_started()) {
            machine_.loop().stop();
            return;
        }
        status_->start();
        service_manager::tell_ready();
    }

    void heard(int signal)
    {
        if (signal == SIGHUP) {
            log_.write(LogLevel::Info,
                "hangup: nothing to do; settings are read at every access, some only at a start");
            return;
        }
        const std::string name = signal == SIGTERM ? "SIGTERM" : "SIGINT";
        if (is_ending_) {
            log_.write(LogLevel::Info, name + " again: the server is stopped now");
            machine_.loop().stop();
            return;
        }
        log_.write(LogLevel::Info, name + ": the server is asked to end");
        is_ending_ = true;
        service_manager::tell_stopping();
        time_to_end_->set_interval(kTimeToEnd);
        time_to_end_->set_enabled(true);
        end();
    }

    /// The shutdown command tells the users when it is carried out. Server_End tells them too, and before: it
    /// is for a server that cannot be commanded, because its database is away.
    void end()
    {
        if (main_->get_ServerStatus() == qz::server::ServerStatus::Started
            && main_->ConnectionTest() == main_->get_ConnectionOK()) {
            main_->set_ServerCommand(qz::helpers::server_command_names().ShutDownCommand, {});
        } else {
            main_->Server_End();
        }
    }

    /// The lines of a turn go out together, before what it says to anybody.
    void turn_ended() override { log_.flush(); }

    void timer_ticked() override
    {
        log_.write(LogLevel::Error, "the server did not shut down in time; it is stopped now");
        machine_.loop().stop();
    }

    const Home& home_;
    HostLog& log_;
    SqlTraceEnd trace_; // outlives what runs statements
    qz::platform::AsioMachine machine_;
    std::unique_ptr<RunEvents> events_;
    std::unique_ptr<qz::server::Main> main_;
    std::unique_ptr<StatusKeeper> status_;
    std::unique_ptr<qz::platform::Timer> time_to_end_;
    bool is_ending_ = false;
    SignalWatcher signals_; // last: it speaks to all of the above
};

} // namespace

Exit run_server(const Home& home, const RunOptions& options)
{
    home.require_initialised();
    home.require_key();
    SignalWatcher::hold_back(); // before the database or the mails have threads of their own
    HostLog log(options.log_format.value_or(natural_log_format()));
    require_sound(home, log);
    const HomeLock lock(home);
    {
        // Says in one line what is wrong with the database, before the engine says it in many.
        const HomeStore store(home);
    }
    std::signal(SIGPIPE, SIG_IGN); // a reader of our output that goes away must not end the server
    return ServerRun(home, options, log).run();
}

} // namespace velto
