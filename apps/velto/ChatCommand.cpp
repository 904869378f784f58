#include "ChatCommand.h"

#include "Clean.h"
#include "FileCommands.h"
#include "Files.h"
#include "Screen.h"
#include "Session.h"
#include "client/Connection.h"
#include "platform/SystemClock.h"
#include "platform/sodium/SodiumCrypto.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <initializer_list>
#include <iostream>
#include <memory>
#include <poll.h>
#include <sys/signalfd.h>
#include <system_error>

namespace velto {

namespace {

using std::chrono::milliseconds;
using namespace std::chrono_literals;

/// The signals that end a chat or change its terminal, as a descriptor to poll.
class Signals {
public:
    Signals()
    {
        sigset_t set;
        sigemptyset(&set);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGCONT}) {
            sigaddset(&set, signal);
        }
        sigprocmask(SIG_BLOCK, &set, nullptr);
        descriptor_ = qz::client::Descriptor(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
        if (descriptor_.number() < 0) {
            throw std::system_error(errno, std::generic_category(), "signalfd");
        }
    }
    int descriptor() const { return descriptor_.number(); }
    /// @return the signals that have come.
    std::vector<int> take() const
    {
        std::vector<int> signals;
        signalfd_siginfo info{};
        while (::read(descriptor_.number(), &info, sizeof info) == sizeof info) {
            signals.push_back(static_cast<int>(info.ssi_signo));
        }
        return signals;
    }

private:
    qz::client::Descriptor descriptor_;
};

/// The folder that was named, else the one for downloads, else the current one.
std::filesystem::path folder_of(const ChatOptions& options)
{
    std::error_code error;
    const auto downloads = typed_path("~/Downloads");
    return !options.into.empty()                          ? typed_path(options.into)
        : std::filesystem::is_directory(downloads, error) ? downloads
                                                          : std::filesystem::current_path(error);
}

/// The screen, the session and the connection in one loop.
class Chat final : public View, public Link {
public:
    Chat(const LogOnOptions& log_on, const ChatOptions& options)
        : Chat(log_on.server, account_of(log_on), options)
    {
    }

    Exit run()
    {
        connection_.start();
        while (!session_.is_over() && !screen_->wants_to_leave() && !is_done()) {
            turn();
        }
        leave();
        if (const auto& failure = session_.failure()) {
            throw CommandError(failure->refused ? Exit::Failed : Exit::NoServer,
                failure->refused ? clean(failure->text)
                                 : "no server answers at " + clean(server_) + ": " + clean(failure->text)
                        + "\nIs it running? Another one is named with --server HOST:PORT.");
        }
        return unsent_ ? Exit::Failed : Exit::Done;
    }

    // View
    void show(const Line& line) override
    {
        if (!session_.failure()) { // that is told at the end
            screen_->print(line);
        }
    }

    // Link
    bool is_logged_on() const override { return core_.is_logged_on(); }
    qz::client::SendResult send(const qz::client::Request& request) override { return core_.send(request); }
    qz::client::ClientCore::SentMessage send_message(const qz::client::OutgoingMessage& message) override
    {
        return core_.deliver_message(message);
    }
    void start() override { connection_.start(); }
    void stop() override { core_.stop(); }

private:
    Chat(const std::string& server, const qz::client::Account& account, const ChatOptions& options)
        : server_(server), session_(account.screen_name, clock_, *this),
          connection_(endpoint_of(server), account, crypto_, clock_, session_), core_(connection_.core()),
          files_(core_, crypto_, clock_, ports_of(options.file_ports), folder_of(options),
              [this](Line::Kind kind, std::string text) { session_.show(kind, std::move(text)); })
    {
        session_.attach(*this);
        session_.attach_files(files_);
        screen_ = Screen::of_process([this](std::string_view line) { return session_.completions(line); });
    }

    /// Waits for whatever comes first, and works on it.
    void turn()
    {
        screen_->set_prompt(session_.prompt());
        std::vector<pollfd> waiting{{takes_keys() ? STDIN_FILENO : -1, POLLIN, 0},
            {signals_.descriptor(), POLLIN, 0}, {connection_.descriptor(), connection_events(), 0}};
        add_watches_of_files(waiting);
        if (::poll(waiting.data(), waiting.size(), wait_time()) < 0) {
            return;
        }
        const auto ready = [&](std::size_t which, int events) {
            return (waiting[which].revents & (events | POLLERR | POLLHUP)) != 0;
        };
        if (ready(1, POLLIN)) {
            take_signals();
        }
        if (ready(0, POLLIN)) {
            take_keys();
        }
        connection_.on_ready(ready(2, POLLIN), ready(2, POLLOUT));
        files_.transfers().on_ready();
        session_.tick();
        connection_.on_ready(false, true); // what the session has to say goes out at once
    }

    /// What is typed before the first logon waits for it.
    bool takes_keys() const { return session_.was_logged_on() && !screen_->is_at_end(); }

    short connection_events() const
    {
        return static_cast<short>(
            (connection_.wants_read() ? POLLIN : 0) | (connection_.wants_write() ? POLLOUT : 0));
    }

    void add_watches_of_files(std::vector<pollfd>& waiting) const
    {
        std::vector<qz::client::Watch> watches;
        files_.transfers().add_watches(watches);
        for (const auto& watch : watches) {
            const int events = (watch.read ? POLLIN : 0) | (watch.write ? POLLOUT : 0);
            waiting.push_back({watch.descriptor, static_cast<short>(events), 0});
        }
    }

    int wait_time() const
    {
        constexpr milliseconds kLongest{60'000};
        constexpr milliseconds kProgressStep{500};
        auto wait = files_.is_moving() ? kProgressStep : kLongest;
        for (const auto& deadline : {connection_.next_deadline(), session_.next_deadline(),
                 files_.transfers().next_deadline(), give_up_}) {
            if (deadline) {
                wait = (std::min)(wait, std::chrono::ceil<milliseconds>(*deadline - clock_.steady()));
            }
        }
        return static_cast<int>((std::max)(wait, 0ms).count());
    }

    void take_signals()
    {
        for (const int signal : signals_.take()) {
            if (signal == SIGWINCH || signal == SIGCONT) {
                screen_->redraw();
            } else {
                session_.quit();
            }
        }
    }

    void take_keys()
    {
        for (const auto& line : screen_->read()) {
            session_.enter(line);
        }
        session_.typed(screen_->typed());
    }

    /// Nothing more will be typed, and all that was typed is done.
    bool is_done() { return screen_->is_at_end() && files_.transfers().is_idle() && is_settled(); }

    /// Whether all that was typed before the end of standard input is with the server, or has to be given up.
    bool is_settled()
    {
        constexpr std::chrono::seconds kPatience{30};
        if (!give_up_) {
            give_up_ = clock_.steady() + kPatience;
        }
        return (session_.is_settled() && core_.is_logged_on()) || clock_.steady() >= *give_up_;
    }

    void leave()
    {
        unsent_ = session_.has_unsent();
        session_.show_unsent();
        files_.cancel_all();
        // What was shown is also confirmed, so that it does not come again.
        connection_.run_until(
            [this] {
                return core_.unconfirmed() == 0 && core_.output().empty() && files_.transfers().is_idle();
            },
            2s, &files_.transfers());
        session_.quit();
        connection_.stop();
        screen_.reset();
    }

    std::string server_;
    Signals signals_;
    qz::platform::SodiumCrypto crypto_;
    qz::platform::SystemClock clock_;
    Session session_;
    qz::client::Connection connection_;
    qz::client::ClientCore& core_;
    Files files_;
    std::unique_ptr<Screen> screen_;
    std::optional<qz::client::TimePoint> give_up_;
    bool unsent_ = false;
};

} // namespace

Exit run_chat(const LogOnOptions& log_on, const ChatOptions& options)
{
    return Chat(log_on, options).run();
}

} // namespace velto
