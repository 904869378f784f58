#include "torture/Database.h"

#include <array>
#include <csignal>
#include <fstream>
#include <stdexcept>

namespace qz::torture {

namespace {

using namespace std::chrono_literals;
using Words = std::vector<std::string>;

constexpr auto kAnswerTime = 10s; // for which velto-server waits

std::unique_ptr<test::DatabaseServer> make_server(const std::string& provider)
{
    if (provider == "embedded") {
        return nullptr;
    }
    if (provider != "postgresql") {
        throw std::invalid_argument("--provider " + provider);
    }
    if (const auto reason = test::reason_against(provider); !reason.empty()) {
        throw std::runtime_error(reason);
    }
    return test::make_database_server(provider);
}

} // namespace

Database::Database(const std::string& provider, std::filesystem::path file, std::mt19937_64& random)
    : file_(std::move(file)), random_(random), server_(make_server(provider))
{
}

void Database::make_trouble(Time now)
{
    if (is_embedded()) {
        return;
    }
    if (stopped_ || is_recovering_) {
        if (now >= until_) {
            is_recovering_ = stopped_; // for one more second: who waits goes on, or has given up
            until_ = now + 1s;
            wake();
        }
        return;
    }
    const auto lot = random_() % 10'000;
    if (lot < 10) {
        stop(now + std::chrono::milliseconds(50 + random_() % 3000));
    } else if (lot < 12) {
        stop(now + kAnswerTime + std::chrono::milliseconds(random_() % 3000));
    } else if (lot < 15) {
        server_->program().send_signal(SIGQUIT); // at once, without a word to its clients
        server_->program().wait();
        server_->start();
        ++restarts_;
        is_recovering_ = true;
        until_ = now + 1s;
    }
}

void Database::stop(Time until)
{
    server_->program().freeze();
    stopped_ = true;
    until_ = until;
    ++pauses_;
}

void Database::end_trouble()
{
    wake();
    is_recovering_ = false;
}

void Database::wake()
{
    if (stopped_) {
        server_->program().send_signal_to_all(SIGCONT);
        stopped_ = false;
    }
}

Words Database::shell(const Words& statements) const
{
    if (is_embedded()) {
        return shell_of(file_, statements);
    }
    const auto address = server_->address(); // "127.0.0.1;Port=1234"
    Words words{"/usr/bin/env", "PGPASSWORD=" + server_->password(), "psql", "-h",
        address.substr(0, address.find(';')), "-p", address.substr(address.find('=') + 1), "-U",
        test::DatabaseServer::kUser, "-d", "VELTO", "-At"};
    for (const auto& statement : statements) {
        words.insert(words.end(), {"-c", statement});
    }
    return words;
}

Words Database::shell_of(const std::filesystem::path& file, const Words& statements)
{
    Words words{"/usr/bin/env", "sqlite3", "-bail", "-cmd", ".timeout 10000", file};
    words.insert(words.end(), statements.begin(), statements.end());
    return words;
}

/// The log's header counts its beginnings; a new log begins with 0. Nothing of the library is used in this
/// process, which therefore may open the file, and the log has no locks.
void Database::look_at_log()
{
    constexpr std::size_t kSequence = 12;
    if (!is_embedded()) {
        return;
    }
    std::array<char, 16> header{};
    std::ifstream log(file_.string() + "-wal", std::ios::binary);
    std::uint32_t sequence = 0;
    if (log.read(header.data(), header.size())) {
        for (std::size_t i = kSequence; i < header.size(); ++i) {
            sequence = sequence << 8U | static_cast<unsigned char>(header.at(i));
        }
    }
    log_beginnings_ += static_cast<int>(sequence - (sequence < log_sequence_ ? 0 : log_sequence_));
    log_sequence_ = sequence;
}

test::ForeignProgram Database::look(const Clock& clock)
{
    return is_embedded() ? test::ForeignProgram(file_, clock) : test::ForeignProgram(*server_, clock);
}

} // namespace qz::torture
