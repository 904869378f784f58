#include "torture/Server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace qz::torture {

namespace {

using namespace std::chrono_literals;

constexpr const char* kDiskSize = "size=128m";

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// Below those that the system gives to connections, of which one could have it whenever the server is down.
std::uint16_t free_port()
{
    constexpr int kLowest = 10'000;
    constexpr int kHighest = 32'000;
    std::random_device random;
    for (int tries = 0; tries < 100; ++tries) {
        const auto port = static_cast<std::uint16_t>(kLowest + random() % (kHighest - kLowest));
        const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const auto address = loopback(port);
        const bool bound = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(probe);
        if (bound) {
            return port;
        }
    }
    throw std::runtime_error("no free port");
}

/// The library that gives a process a clock of its own, where its package is installed.
std::filesystem::path find_clock_library()
{
    for (const auto* folder : {"/usr/lib/x86_64-linux-gnu", "/usr/lib/aarch64-linux-gnu", "/usr/lib"}) {
        auto library = std::filesystem::path(folder) / "faketime" / "libfaketime.so.1";
        if (std::filesystem::exists(library)) {
            return library;
        }
    }
    return {};
}

/// @return nothing while the process still runs.
bool wait_until(pid_t process, std::chrono::seconds longest, int& status)
{
    const auto end = std::chrono::steady_clock::now() + longest;
    while (waitpid(process, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

} // namespace

Server::Server(std::filesystem::path program, std::filesystem::path folder,
    const std::vector<std::string>& users, const test::DatabaseServer* database)
    : program_(std::move(program)), folder_(std::move(folder)), clock_library_(find_clock_library()),
      port_(free_port())
{
    std::filesystem::create_directories(home());
    mounted_ =
        database == nullptr && geteuid() == 0 && mount("tmpfs", home().c_str(), "tmpfs", 0, kDiskSize) == 0;
    run({"init"});
    run({"config", "set", "General SetUp/ListeningPort", std::to_string(port_)});
    run({"config", "set", "General SetUp/Client Message Expiration Time", "100000"});
    run({"config", "set", "SetUp/ServerSpeed", "0"});
    for (const auto* quota : {"PerSender", "PerRecipient", "PerPair"}) { // what is refused is not accepted
        run({"config", "set", std::string("Safeguards/Queued") + quota, "1000000"});
    }
    for (const auto* quota : {"PerSender", "PerRecipient"}) {
        run({"config", "set", std::string("Safeguards/QueuedBytes") + quota, "2000000000"});
    }
    if (database != nullptr) {
        use(*database);
    }
    for (const auto& user : users) {
        run({"user", "add", user, "--password-stdin"}, "secret\n");
    }
    move_clock(0);
}

Server::~Server()
{
    kill();
    if (mounted_) {
        umount2(home().c_str(), MNT_DETACH);
    }
}

void Server::use(const test::DatabaseServer& database)
{
    run({"config", "set", "Storage/Provider", "odbc"});
    run({"config", "set", "DB SetUp/dbServerIP", database.address()});
    run({"config", "set", "DB SetUp/dbUserName", test::DatabaseServer::kUser});
    run({"config", "set", "DB SetUp/dbPassword"}, database.password() + "\n");
    run({"db", "init"});
}

std::vector<std::string> Server::command(const std::vector<std::string>& arguments) const
{
    std::vector<std::string> words{"/usr/bin/env"};
    if (!clock_library_.empty()) { // the steady clock stays what it is
        // A server with sanitizers wants to be asked before it is loaded behind another library.
        const char* const options = std::getenv("ASAN_OPTIONS");
        const auto before = options == nullptr ? std::string() : options + std::string(":");
        words.insert(words.end(),
            {"LD_PRELOAD=" + clock_library_.string(),
                "FAKETIME_TIMESTAMP_FILE=" + (folder_ / "clock").string(), "FAKETIME_CACHE_DURATION=1",
                "FAKETIME_DONT_FAKE_MONOTONIC=1", "FAKETIME_DONT_RESET=1",
                "ASAN_OPTIONS=" + before + "verify_asan_link_order=0"});
    }
    words.insert(words.end(), {program_.string(), "--home", home().string()});
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

pid_t Server::spawn(const std::vector<std::string>& arguments, const std::filesystem::path& input) const
{
    auto words = command(arguments);
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (auto& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const auto output = log();
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    const int in = open(input.c_str(), O_RDONLY);
    const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(in, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        close(descriptor);
    }
    execv(argv[0], argv.data());
    _exit(127);
}

void Server::run(std::initializer_list<std::string> arguments, const std::string& input)
{
    const auto file = folder_ / "input";
    std::ofstream(file) << input;
    int status = 0;
    if (!wait_until(spawn(arguments, file), 60s, status) || status != 0) {
        std::ostringstream said;
        said << std::ifstream(log()).rdbuf();
        throw std::runtime_error("velto-server " + *arguments.begin() + " failed: " + said.str());
    }
}

void Server::start()
{
    process_ = spawn({"run"}, "/dev/null");
}

void Server::kill()
{
    if (process_ != 0) {
        ::kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        process_ = 0;
    }
}

bool Server::shut_down()
{
    int status = 0;
    ::kill(process_, SIGTERM);
    if (!wait_until(process_, 20s, status)) {
        return false;
    }
    process_ = 0;
    return true;
}

bool Server::reap()
{
    if (process_ == 0 || waitpid(process_, nullptr, WNOHANG) != process_) {
        return false;
    }
    process_ = 0;
    return true;
}

bool Server::accepts_connections() const
{
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    auto address = loopback(port_);
    const bool connected = connect(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return connected;
}

void Server::starve(int pages_left)
{
    struct statvfs disk { };
    if (!mounted_ || statvfs(home().c_str(), &disk) != 0) {
        return;
    }
    starved_ = true;
    const int file = open((home() / "filler").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::vector<char> page(disk.f_bsize, 'x');
    const auto pages = static_cast<std::int64_t>(disk.f_bavail) - pages_left;
    for (std::int64_t i = 0; i < pages; ++i) {
        if (write(file, page.data(), page.size()) != static_cast<ssize_t>(page.size())) {
            break;
        }
    }
    close(file);
}

void Server::feed()
{
    std::error_code ignored;
    std::filesystem::remove(home() / "filler", ignored);
    starved_ = false;
}

void Server::move_clock(std::int64_t seconds)
{
    if (clock_library_.empty()) {
        return;
    }
    clock_offset_ = seconds;
    std::ofstream(folder_ / "clock.new") << (seconds < 0 ? "-" : "+") << std::abs(seconds) << "\n";
    std::filesystem::rename(folder_ / "clock.new", folder_ / "clock");
}

} // namespace qz::torture
