// A server as its users run it: a process of its own, on a home of its own, on a free port.
#pragma once

#include "support/TemporaryFolder.h"

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace qz::test {

class ServerProcess {
public:
    /// Makes the home.
    ServerProcess();
    /// Ends what still runs.
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    /// Runs `velto-server` with these arguments on the home, and waits for its end.
    /// @param input  what it reads from standard input.
    /// @return its exit code; what it printed is in `output`.
    int run(const std::vector<std::string>& arguments, const std::string& input = {});
    std::string output;

    /// Starts the server and waits until it accepts connections.
    /// @throws std::runtime_error when it does not within ten seconds.
    /// @param options  of the command run.
    void start(const std::vector<std::string>& options = {});
    void send_signal(int signal) const;
    /// Waits for the server's end.
    /// @return its exit code; -1 when a signal ended it, or when it had to be killed after 15 seconds.
    int wait();

    /// What the server has written so far.
    std::string log() const;
    std::uint16_t port() const { return port_; }
    std::filesystem::path home() const { return folder_.path() / "home"; }

private:
    bool accepts_connections() const;

    TemporaryFolder folder_;
    std::uint16_t port_ = 0;
    pid_t server_ = 0;
};

} // namespace qz::test
