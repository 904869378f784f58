#include "FileCommands.h"

#include "Clean.h"
#include "FileTexts.h"
#include "ScriptClient.h"
#include "base/Text.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <iostream>
#include <optional>
#include <set>
#include <unistd.h>

namespace velto {

namespace {

using namespace qz::client;
using namespace qz::client::transfer;
using namespace std::chrono_literals;
using FileView = qz::client::transfer::View;

constexpr std::chrono::hours kForGood{24 * 365 * 10};

/// A client that moves files, and a line on standard error that tells how far they are.
class Mover : private TransferEvents {
public:
    Mover(const LogOnOptions& log_on, const std::string& ports, bool quiet)
        : client_(log_on, ScriptClient::Messages::Left),
          transfers_(client_.core(), crypto_, client_.clock(), *this, ports_of(ports)),
          shows_progress_(!quiet && isatty(STDERR_FILENO) != 0)
    {
        client_.share_loop(transfers_);
        client_.on_incoming = [this](const Incoming& incoming) {
            take(incoming);
        };
        client_.on_lost = [this](const Disconnected& lost) {
            say(clean(lost.text));
            transfers_.disconnected();
        };
    }
    virtual ~Mover() = default;
    Mover(const Mover&) = delete;
    Mover& operator=(const Mover&) = delete;

protected:
    void log_on()
    {
        client_.log_on();
        client_.settle(); // the policy has come
    }
    template <typename Condition> bool wait(Condition condition, std::chrono::milliseconds longest)
    {
        return client_.run_until(
            [&] {
                show_progress();
                return condition();
            },
            longest);
    }
    /// Ends what is left, and lets the last words go out.
    void finish()
    {
        for (const auto& each : transfers_.list()) {
            transfers_.cancel(each.number);
        }
        client_.finish([this] { return transfers_.is_idle() && client_.core().output().empty(); }, 15s);
    }
    void say(const std::string& text)
    {
        clear_progress();
        std::cerr << "velto: " << text << "\n";
    }
    void clear_progress()
    {
        if (progress_is_shown_) {
            std::cerr << "\r\x1b[K" << std::flush;
            progress_is_shown_ = false;
        }
    }
    TimePoint now() const { return client_.clock().steady(); }

    ScriptClient client_;
    qz::platform::SodiumCrypto crypto_;
    Transfers transfers_;
    Progress progress_;

private:
    void take(const Incoming& incoming)
    {
        const bool taken = transfers_.take(incoming);
        const auto* const message = std::get_if<Message>(&incoming);
        if (message != nullptr && taken) { // nobody else has a use for it
            client_.core().send(requests::receipt(message->id));
        } else if (message != nullptr) {
            say("a message came meanwhile from " + clean(message->sender) + ": " + clean(message->text));
        } else if (const auto* const notice = std::get_if<Notice>(&incoming); notice != nullptr && !taken) {
            say(clean(notice->text));
        }
    }
    void started(const FileView& transfer) override { progress_.begin(transfer, now()); }
    void not_understood(const std::string& from) override
    {
        say(clean(from) + " wants to send a file, but with a program that does not say which");
    }

    void show_progress()
    {
        constexpr auto kStep = 250ms;
        if (!shows_progress_ || now() < next_progress_) {
            return;
        }
        for (const auto& each : transfers_.list()) {
            if (each.stage == Stage::Moving) {
                next_progress_ = now() + kStep;
                progress_is_shown_ = true;
                std::cerr << "\r\x1b[K" << file_text(each) << ": " << progress_.text(each, now())
                          << std::flush;
                return;
            }
        }
    }

    bool shows_progress_;
    bool progress_is_shown_ = false;
    TimePoint next_progress_{};
};

class FileSender final : public Mover {
public:
    FileSender(const LogOnOptions& log_on, const SendFileOptions& options)
        : Mover(log_on, options.ports, options.quiet), options_(options)
    {
    }

    Exit run()
    {
        log_on();
        const auto sent = transfers_.send(options_.to, options_.file);
        if (const auto* const failure = std::get_if<Ending>(&sent)) {
            throw CommandError(Exit::Failed, clean(options_.file) + ": " + ending_text(*failure));
        }
        const auto is_taken = [this] {
            const auto all = transfers_.list();
            return ending_ || all.empty() || all.front().stage == Stage::Connecting
                || all.front().stage == Stage::Moving;
        };
        if (!wait(is_taken, std::chrono::seconds(options_.timeout))) {
            transfers_.cancel(
                std::get<int>(sent), {Interrupt::requested() ? Outcome::Cancelled : Outcome::NoAnswer});
        }
        wait([this] { return ending_.has_value(); }, kForGood);
        finish();
        return ending_ && ending_->outcome == Outcome::Done ? Exit::Done : Exit::Failed;
    }

private:
    void offered(const FileView& transfer) override { transfers_.cancel(transfer.number); }
    void ended(const FileView& transfer, const Ending& ending) override
    {
        if (transfer.direction == Direction::Receiving) {
            return;
        }
        ending_ = ending;
        if (ending.outcome != Outcome::Done) {
            say(file_text(transfer) + ": " + ending_text(ending));
        } else if (!options_.quiet) {
            clear_progress();
            std::cout << clean(options_.to) << " has " << file_text(transfer) << ": "
                      << progress_.summary(transfer, now()) << "\n";
        }
    }

    const SendFileOptions& options_;
    std::optional<Ending> ending_;
};

class FileReceiver final : public Mover {
public:
    FileReceiver(const LogOnOptions& log_on, const ReceiveFileOptions& options)
        : Mover(log_on, options.ports, options.quiet), options_(options)
    {
    }

    Exit run()
    {
        log_on();
        const auto longest = options_.timeout > 0 ? std::chrono::seconds(options_.timeout) : kForGood;
        while (!is_done() && wait([this] { return is_done() || !accepted_.empty(); }, longest)) {
            wait([this] { return accepted_.empty(); }, kForGood);
        }
        finish();
        return options_.once && !arrived_ ? Exit::Failed : Exit::Done;
    }

private:
    bool is_done() const { return Interrupt::requested() || (options_.once && ended_any_); }

    void offered(const FileView& transfer) override
    {
        const bool is_wanted = options_.from.empty() || qz::equal_ignoring_case(options_.from, transfer.peer);
        if (!is_wanted || (options_.once && (ended_any_ || !accepted_.empty()))) {
            transfers_.cancel(transfer.number);
            return;
        }
        accepted_.insert(transfer.number);
        if (const auto failure = transfers_.accept(transfer.number, options_.into)) {
            transfers_.cancel(transfer.number, *failure);
        } else if (!options_.quiet) {
            say(clean(transfer.peer) + " sends " + file_text(transfer) + " (" + size_text(transfer.size)
                + ")");
        }
    }
    void ended(const FileView& transfer, const Ending& ending) override
    {
        if (accepted_.erase(transfer.number) == 0) {
            return; // refused
        }
        if (ending.outcome == Outcome::OfferedAnew) {
            return; // that is accepted again
        }
        ended_any_ = true;
        if (ending.outcome != Outcome::Done) {
            say(file_text(transfer) + " from " + clean(transfer.peer) + ": " + ending_text(ending));
            return;
        }
        arrived_ = true;
        clear_progress();
        std::cout << clean(transfer.path.string()) << std::endl;
    }

    const ReceiveFileOptions& options_;
    std::set<int> accepted_; // that have not ended
    bool ended_any_ = false;
    bool arrived_ = false;
};

} // namespace

PortRange ports_of(const std::string& text)
{
    if (text.empty()) {
        return {};
    }
    constexpr std::uint16_t kLeast = 1024;
    const auto number = [&text](std::string_view digits) {
        std::uint16_t port = 0;
        const auto* const end = digits.data() + digits.size();
        const auto [at, error] = std::from_chars(digits.data(), end, port);
        if (error != std::errc() || at != end || port < kLeast) {
            throw CommandError(
                Exit::Usage, "ports are PORT or FIRST-LAST, from 1024 to 65535, not " + clean(text));
        }
        return port;
    };
    const auto dash = text.find('-');
    const auto first = number(std::string_view(text).substr(0, dash));
    const auto last = dash == std::string::npos ? first : number(std::string_view(text).substr(dash + 1));
    return {(std::min)(first, last), (std::max)(first, last)};
}

Exit run_send_file(const LogOnOptions& log_on, const SendFileOptions& options)
{
    return FileSender(log_on, options).run();
}

Exit run_receive_file(const LogOnOptions& log_on, const ReceiveFileOptions& options)
{
    return FileReceiver(log_on, options).run();
}

} // namespace velto
