#include "system/ServerProcess.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace qz::test {

namespace {

using namespace std::chrono_literals;

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// A port that nobody uses at the moment.
std::uint16_t free_port()
{
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    auto address = loopback(0);
    socklen_t size = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (bind(probe, raw, size) != 0 || getsockname(probe, raw, &size) != 0) {
        throw std::runtime_error("no free port");
    }
    close(probe);
    return ntohs(address.sin_port);
}

/// Starts a program with its standard streams on files.
pid_t spawn(
    const std::vector<std::string>& words, const std::filesystem::path& in, const std::filesystem::path& out)
{
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const auto& word : words) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int input = open(in.c_str(), O_RDONLY);
        const int output = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(input, STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    return child;
}

/// @return the exit code; -1 for a process that a signal ended, or that was killed at the deadline.
int wait_for(pid_t process, std::chrono::seconds longest)
{
    const auto deadline = std::chrono::steady_clock::now() + longest;
    int status = 0;
    while (waitpid(process, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(process, SIGKILL);
            waitpid(process, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(5ms); // the only way to wait for a process with a time limit
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

ServerProcess::ServerProcess() : port_(free_port())
{
    if (run({"init"}) != 0
        || run({"config", "set", "General SetUp/ListeningPort", std::to_string(port_)}) != 0
        || run({"config", "set", "SetUp/ServerSpeed", "0"}) != 0) {
        throw std::runtime_error(output);
    }
}

ServerProcess::~ServerProcess()
{
    if (server_ != 0) {
        kill(server_, SIGKILL);
        waitpid(server_, nullptr, 0);
    }
}

int ServerProcess::run(std::initializer_list<std::string> arguments, const std::string& input)
{
    std::vector<std::string> words{VELTO_SERVER_PROGRAM, "--home", home().string()};
    words.insert(words.end(), arguments);
    put_bytes(folder_ / "input", input);
    const int code = wait_for(spawn(words, folder_ / "input", folder_ / "output"), 30s);
    output = bytes_of(folder_ / "output");
    return code;
}

void ServerProcess::start()
{
    put_bytes(folder_ / "input", "");
    server_ = spawn(
        {VELTO_SERVER_PROGRAM, "run", "--home", home().string()}, folder_ / "input", folder_ / "server.log");
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!accepts_connections()) {
        if (std::chrono::steady_clock::now() > deadline || waitpid(server_, nullptr, WNOHANG) != 0) {
            throw std::runtime_error("the server did not start: " + bytes_of(folder_ / "server.log"));
        }
        std::this_thread::sleep_for(10ms);
    }
}

bool ServerProcess::accepts_connections() const
{
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    auto address = loopback(port_);
    const bool connected = connect(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return connected;
}

void ServerProcess::send_signal(int signal) const
{
    kill(server_, signal);
}

int ServerProcess::wait()
{
    const int code = wait_for(server_, 15s);
    server_ = 0;
    return code;
}

} // namespace qz::test
