// Tortures a server with both safeguards of its queue on, in the company of administration commands. Fails
// when one message that it accepted is lost, is shown twice or under two numbers, or overtakes another from
// the same sender, when the database is damaged, or when what a command did is gone. See script/torture.
#include "platform/SystemClock.h"
#include "store/Statements.h"
#include "support/ForeignProgram.h"
#include "support/TemporaryFolder.h"
#include "torture/Company.h"
#include "torture/Database.h"
#include "torture/Network.h"
#include "torture/Options.h"
#include "torture/Server.h"
#include "torture/Truth.h"
#include "torture/User.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace qz::torture {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

const std::vector<std::string> kNames{"ada", "ben", "cleo", "dora", "emil", "fay"};

class Torture {
public:
    Torture(const Options& options, const std::filesystem::path& folder)
        : options_(options), random_(options.seed),
          database_(options.provider, folder / "home" / "VELTO.db", random_),
          server_(options.program, folder, kNames, database_.server()), network_(server_.port(), random_),
          company_(server_, database_, folder, truth_, random_), began_(SteadyClock::now())
    {
        for (const auto& name : kNames) {
            users_.push_back(std::make_unique<User>(name, network_.port(), truth_));
        }
    }

    bool run()
    {
        restart();
        while (kills_ < options_.kills && SteadyClock::now() - began_ < options_.longest && calm()) {
            make_trouble();
            turn();
        }
        if (kills_ < options_.kills && calm()) {
            truth_.fail("only " + std::to_string(kills_) + " kills in the time given");
        }
        settle();
        compare();
        report();
        return calm();
    }

private:
    bool calm() const { return truth_.failures().empty(); }
    std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
    bool chance(int in_ten_thousand) { return below(10'000) < static_cast<std::uint64_t>(in_ten_thousand); }
    std::chrono::milliseconds time(int least, int most)
    {
        return std::chrono::milliseconds(
            least + static_cast<int>(below(static_cast<unsigned>(most - least))));
    }

    /// Everybody does what there is to do.
    void turn()
    {
        std::vector<pollfd> descriptors;
        network_.watch(descriptors);
        for (const auto& user : users_) {
            auto& connection = user->connection();
            if (connection.descriptor() >= 0) {
                const auto events = static_cast<short>(
                    (connection.wants_read() ? POLLIN : 0) | (connection.wants_write() ? POLLOUT : 0));
                descriptors.push_back({connection.descriptor(), events, 0});
            }
        }
        poll(descriptors.data(), descriptors.size(), 5);
        const auto now = SteadyClock::now();
        network_.work(now);
        for (const auto& user : users_) {
            user->work(now);
        }
        company_.work(now);
        std::erase_if(thieves_, [&](const auto& thief) { return !thief->work(now); });
        if (server_.reap()) {
            ended_by_itself();
        }
        if (!is_up_ && server_.runs() && server_.accepts_connections()) {
            is_up_ = true;
            kill_at_ = (std::max)(kill_at_, now);
        }
    }

    /// A server that finds no room on the disk, or no database, may refuse to start; it may not fall while it
    /// runs.
    void ended_by_itself()
    {
        if (server_.is_starved() && !is_up_) {
            server_.feed();
        } else if (!had_database_ && !is_up_) {
            database_.end_trouble();
        } else {
            truth_.fail("the server ended by itself");
        }
        restart();
    }

    void restart()
    {
        is_up_ = false;
        had_database_ = !database_.is_in_trouble();
        company_.leave_the_port();
        server_.start();
        // Now and then in the middle of its start, mostly some time after it is up.
        const auto now = SteadyClock::now();
        kills_early_ = below(8) == 0;
        kills_behind_command_ = !kills_early_ && below(3) == 0;
        writes_much_ = !kills_early_ && below(5) == 0;
        awaits_copy_ = writes_much_ && database_.is_embedded();
        kill_at_ = now + (kills_early_ ? time(1, 150) : time(50, 900));
    }

    bool is_time_to_kill(SteadyClock::time_point now)
    {
        constexpr auto kPatience = 8s; // somebody may read for so long that the log cannot begin again
        const auto before = database_.log_beginnings();
        database_.look_at_log();
        if (awaits_copy_ && database_.log_beginnings() != before) {
            awaits_copy_ = false;
            kill_at_ = now + time(0, 900);
        }
        return now >= kill_at_ + (awaits_copy_ ? kPatience : 0s) && (is_up_ || kills_early_)
            && (!kills_behind_command_ || company_.one_has_ended());
    }

    void make_trouble()
    {
        const auto now = SteadyClock::now();
        write_something();
        if (is_time_to_kill(now)) {
            server_.kill();
            ++kills_;
            kills_behind_commands_ += kills_behind_command_ ? 1 : 0;
            company_.check_integrity();
            if (server_.is_starved() && below(2) == 0) {
                server_.feed();
            }
            restart();
        }
        if (chance(60)) {
            network_.cut();
        }
        if (chance(15)) {
            network_.leave_half_open(now);
        }
        if (chance(20)) {
            network_.slow_down(now);
        }
        if (chance(30)) {
            users_[below(users_.size())]->leave(now + time(50, 3000));
        }
        if (chance(15) && thieves_.size() < 3) {
            thieves_.push_back(
                std::make_unique<Thief>(kNames[below(kNames.size())], server_.port(), now + time(50, 1500)));
            ++thefts_;
        }
        network_.repeat(below(2) == 0 ? 0 : 10);
        starve_or_feed(now);
        database_.make_trouble(now);
        had_database_ = had_database_ && !database_.is_in_trouble();
        if (chance(20)) {
            server_.move_clock(static_cast<std::int64_t>(below(14'400)) - 7'200);
            clock_moves_ += server_.can_move_clock() ? 1 : 0;
        }
    }

    void starve_or_feed(SteadyClock::time_point now)
    {
        if (server_.is_starved() && now >= feed_at_) {
            server_.feed();
        } else if (!server_.is_starved() && server_.can_starve() && chance(15)) {
            server_.starve(static_cast<int>(below(8)));
            feed_at_ = now + time(50, 1000);
            ++starved_;
        }
    }

    void write_something()
    {
        constexpr std::size_t kMostUnsettled = 150; // of one user
        for (std::uint64_t i = below(writes_much_ ? 6 : 3); i > 0; --i) {
            auto& from = *users_[below(users_.size())];
            const auto& to = kNames[below(kNames.size())];
            if (to == from.name() || from.connection().core().unsettled() >= kMostUnsettled
                || from.connection().core().next_deadline() == std::nullopt) {
                continue;
            }
            const bool is_long = below(writes_much_ ? 2 : 40) == 0;
            std::optional<DateTime> expires;
            if (below(12) == 0) {
                expires = clock_.now().plus_seconds(
                    server_.clock_offset() + static_cast<std::int64_t>(below(8)) - 1);
            }
            from.write_to(to, is_long ? below(20'000) : below(100), expires);
        }
    }

    /// All trouble ends, and everything has to come to its end.
    void settle()
    {
        constexpr auto kPatience = 120s;
        server_.feed();
        network_.heal();
        database_.end_trouble();
        thieves_.clear();
        for (const auto& user : users_) {
            user->come_back();
        }
        kill_at_ = SteadyClock::time_point::max();
        const auto end = SteadyClock::now() + kPatience;
        while (calm() && SteadyClock::now() < end && !truth_.missing().empty()) {
            turn();
        }
        constexpr std::size_t kMostNamed = 10;
        const auto missing = truth_.missing();
        for (std::size_t i = 0; i < (std::min)(missing.size(), kMostNamed); ++i) {
            truth_.fail(missing[i]);
        }
        if (missing.size() > kMostNamed) {
            truth_.fail("and " + std::to_string(missing.size() - kMostNamed) + " more");
        }
        company_.finish();
        let_guests_log_on();
        // The last confirmations arrive, and what may expire does; the clock goes past it.
        const auto quiet = SteadyClock::now() + 3s;
        server_.move_clock(server_.clock_offset() + 30'000);
        while (SteadyClock::now() < quiet) {
            turn();
        }
        if (server_.runs() && !server_.shut_down()) {
            truth_.fail("the server did not shut down");
        }
    }

    /// Those who were added while all this went on.
    void let_guests_log_on()
    {
        constexpr auto kPatience = 30s;
        for (const auto& name : company_.accounts()) {
            User guest(name, server_.port(), truth_);
            const auto end = SteadyClock::now() + kPatience;
            while (calm() && !guest.has_logged_on() && SteadyClock::now() < end) {
                guest.work(SteadyClock::now());
                turn();
            }
            if (!guest.has_logged_on()) {
                truth_.fail(name + " was added and cannot log on");
            }
        }
    }

    /// What the server has counted must be what really happened.
    void compare()
    {
        const platform::SystemClock clock;
        company_.compare();
        auto database = database_.look(clock);
        const auto rows = database.rows(store::tables::kQueueCount, {"Accepted", "Confirmed", "Expired"});
        const auto waiting = static_cast<std::int64_t>(database.count(store::tables::kQueue));
        char bar = '|';
        std::istringstream(rows.empty() ? "0|0|0" : rows.front()) >> counted_ >> bar >> confirmed_ >> bar
            >> expired_;
        waiting_ = waiting;
        if (counted_ != truth_.accepted_messages() || counted_ != confirmed_ + expired_ + waiting) {
            truth_.fail("the server counts " + std::to_string(counted_) + " accepted, "
                + std::to_string(confirmed_) + " confirmed, " + std::to_string(expired_) + " expired, "
                + std::to_string(waiting) + " waiting; " + std::to_string(truth_.accepted_messages())
                + " were accepted");
        }
        for (const auto& line : database.rows(store::tables::kLog, {"Action"})) {
            if (line.starts_with("The counts of the queue")) {
                truth_.fail(line);
            }
        }
    }

    void report() const
    {
        for (const auto& failure : truth_.failures()) {
            std::cout << "FAILED: " << failure << "\n";
        }
        if (!calm()) {
            const auto kept =
                std::filesystem::temp_directory_path() / ("velto-torture-" + std::to_string(options_.seed));
            std::filesystem::create_directories(kept);
            constexpr auto kHow =
                std::filesystem::copy_options::overwrite_existing | std::filesystem::copy_options::recursive;
            std::filesystem::copy(server_.log(), kept / "server.log", kHow);
            std::filesystem::copy(server_.home(), kept / "home", kHow);
            std::cout << "The server's home and log: " << kept.string()
                      << "\nAgain: script/torture --provider " << options_.provider << " --seed "
                      << options_.seed << " --kills " << options_.kills << "\n";
        }
        if (database_.is_embedded() && !server_.can_starve()) {
            std::cout << "The disk was never full: that needs root.\n";
        }
        if (!server_.can_move_clock()) {
            std::cout << "The clock was never moved: that needs the package libfaketime.\n";
        }
        const auto seconds =
            std::chrono::duration_cast<std::chrono::seconds>(SteadyClock::now() - began_).count();
        const auto& network = network_.counts;
        std::cout << "torture " << (calm() ? "passed" : "FAILED") << ": seed " << options_.seed << ", "
                  << kills_ << " kills (" << kills_behind_commands_ << " behind a command), "
                  << truth_.messages() << " messages, " << truth_.accepted_messages() << " accepted, "
                  << truth_.shown_messages() << " shown, " << confirmed_ << " confirmed, " << expired_
                  << " expired, " << waiting_ << " waiting; " << network.links << " connections, "
                  << network.cuts << " cut, " << network.half_open << " half-open, " << network.slow
                  << " slow, " << network.repeated << " messages repeated, " << thefts_ << " second logons, "
                  << starved_ << " full disks, " << clock_moves_ << " clock moves; " << company_.commands()
                  << " commands, " << company_.accounts().size() << " accounts added, "
                  << company_.integrity_checks() << " integrity checks, " << database_.log_beginnings()
                  << " copies of the log into the file";
        if (!database_.is_embedded()) {
            std::cout << ", " << database_.pauses() << " pauses and " << database_.restarts()
                      << " restarts of " << options_.provider;
        }
        std::cout << "; " << seconds << " s" << std::endl;
    }

    Options options_;
    std::mt19937_64 random_;
    platform::SystemClock clock_;
    Truth truth_;
    Database database_;
    Server server_;
    Network network_;
    Company company_;
    std::vector<std::unique_ptr<User>> users_;
    std::vector<std::unique_ptr<Thief>> thieves_;
    SteadyClock::time_point began_;
    SteadyClock::time_point kill_at_;
    SteadyClock::time_point feed_at_;
    bool is_up_ = false;
    bool kills_early_ = false;
    bool kills_behind_command_ = false;
    bool writes_much_ = false;
    bool awaits_copy_ = false; // of the log into the file, before the kill
    bool had_database_ = true; // from the server's start on
    int kills_ = 0;
    int kills_behind_commands_ = 0;
    int thefts_ = 0;
    int starved_ = 0;
    int clock_moves_ = 0;
    std::int64_t counted_ = 0;
    std::int64_t confirmed_ = 0;
    std::int64_t expired_ = 0;
    std::int64_t waiting_ = 0;
};

} // namespace

} // namespace qz::torture

int main(int argc, char** argv)
{
    qz::torture::Options options;
    try {
        options = qz::torture::options_in({argv + 1, argv + argc});
    } catch (const std::exception&) {
        std::cerr << "Usage: velto_torture [--seed N] [--kills N] [--minutes M] [--server PROGRAM] "
                     "[--provider embedded|postgresql]\n";
        return 2;
    }
    try {
        std::cout << "torture: seed " << options.seed << std::endl;
        const qz::test::TemporaryFolder folder;
        return qz::torture::Torture(options, folder.path()).run() ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "torture: " << failure.what() << "\n";
        return 1;
    }
}
