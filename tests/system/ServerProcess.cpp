#include "system/ServerProcess.h"

#include "system/Process.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
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

int ServerProcess::run(const std::vector<std::string>& arguments, const std::string& input)
{
    std::vector<std::string> words{VELTO_SERVER_PROGRAM, "--home", home().string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    put_bytes(folder_ / "input", input);
    const int code = wait_for(spawn(words, folder_ / "input", folder_ / "output"), 30s);
    output = bytes_of(folder_ / "output");
    return code;
}

void ServerProcess::start(const std::vector<std::string>& options)
{
    put_bytes(folder_ / "input", "");
    std::vector<std::string> words{VELTO_SERVER_PROGRAM, "run", "--home", home().string()};
    words.insert(words.end(), options.begin(), options.end());
    server_ = spawn(words, folder_ / "input", folder_ / "server.log");
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!accepts_connections()) {
        if (std::chrono::steady_clock::now() > deadline || waitpid(server_, nullptr, WNOHANG) != 0) {
            throw std::runtime_error("the server did not start: " + log());
        }
        std::this_thread::sleep_for(10ms);
    }
}

std::string ServerProcess::log() const
{
    return bytes_of(folder_ / "server.log");
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
