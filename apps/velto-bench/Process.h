// A process that is measured: started on a core of its own, and asked of the kernel what it used.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <sched.h>
#include <sys/types.h>

namespace velto::bench {

using Seconds = std::chrono::duration<double>;

/// Binds this process to one core; on a machine with one core only it does nothing.
void pin_to_core(int core);
/// Lets this process, and what it starts, run on all cores as long as the object lives.
class OnAllCores {
public:
    OnAllCores();
    OnAllCores(const OnAllCores&) = delete;
    OnAllCores& operator=(const OnAllCores&) = delete;
    ~OnAllCores();

private:
    cpu_set_t before_{};
};
/// Lets this process have as many files as the system allows.
void raise_file_limit();
/// Processor time of this process so far.
Seconds own_time();

class Process {
public:
    /// Starts a program on core 0, with its output in a file.
    /// @throws std::runtime_error when it cannot be started.
    Process(const std::vector<std::string>& words, const std::string& output);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    /// Ends it: asks first, and kills it after ten seconds.
    ~Process();

    /// Waits until it accepts connections.
    /// @return the time since it was started.
    /// @throws std::runtime_error when it ends or does not within 60 seconds.
    Seconds wait_for_port(std::uint16_t port) const;
    /// Processor time of all its threads so far.
    Seconds time() const;
    /// Memory of its own that is resident, in bytes: not files that are mapped.
    std::int64_t memory() const;

private:
    pid_t number_ = -1;
    std::chrono::steady_clock::time_point started_;
};

/// Runs a program to its end.
/// @param input  file that it reads from standard input.
/// @throws std::runtime_error when it fails.
void run_program(
    const std::vector<std::string>& words, const std::string& output, const std::string& input = "/dev/null");

std::uint16_t free_port();

} // namespace velto::bench
