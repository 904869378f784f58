// A program of the machine that a test starts and ends.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qz::test {

/// A port of 127.0.0.1 that nobody uses at the moment.
std::uint16_t free_port();

/// Runs until it is ended, and never longer than the test program itself.
class ServerProgram {
public:
    /// @param user  whom it runs as when the test runs as root, which database servers refuse to.
    /// @param log   file for what it prints.
    ServerProgram(std::vector<std::string> words, const std::string& user, const std::filesystem::path& log);
    ServerProgram(const ServerProgram&) = delete;
    ServerProgram& operator=(const ServerProgram&) = delete;
    ~ServerProgram() { end(); }

    void send_signal(int signal) const;
    /// The same for it and the processes that it started.
    void send_signal_to_all(int signal) const;
    /// Stops the program and its children, and comes back when they stand still. SIGCONT wakes them.
    void freeze() const;
    /// Processor time of it and the processes that it started, in seconds.
    double processor_time() const;
    /// Waits for its own end.
    /// @return its exit code, -1 for a signal.
    int wait();
    /// Kills it.
    void end();

private:
    bool any_thread_runs() const;
    std::vector<pid_t> processes() const;

    pid_t process_ = 0;
};

/// Gives a folder to the user whom a ServerProgram runs as.
void give_to(const std::filesystem::path& folder, const std::string& user);

} // namespace qz::test
