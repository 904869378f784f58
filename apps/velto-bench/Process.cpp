#include "Process.h"

#include "client/Descriptor.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <sched.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace velto::bench {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;
using qz::client::Descriptor;

constexpr int kMeasuredCore = 0;

Seconds read_clock(clockid_t clock)
{
    timespec time{};
    if (clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("the processor time cannot be read");
    }
    return Seconds(static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9);
}

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

bool accepts(std::uint16_t port)
{
    const Descriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto address = loopback(port);
    return connect(probe.number(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

[[noreturn]] void become(
    const std::vector<std::string>& words, const std::string& output, const std::string& input, int core)
{
    dup2(open(input.c_str(), O_RDONLY), STDIN_FILENO);
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    prctl(PR_SET_PDEATHSIG, SIGTERM); // a run that is broken off leaves no server behind
    pin_to_core(core);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const auto& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str())); // what the call wants; it changes nothing
    }
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

pid_t start(
    const std::vector<std::string>& words, const std::string& output, const std::string& input = "/dev/null")
{
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("cannot start " + words[0] + ": " + std::strerror(errno));
    }
    if (child == 0) {
        become(words, output, input, kMeasuredCore);
    }
    return child;
}

} // namespace

void pin_to_core(int core)
{
    if (std::thread::hardware_concurrency() < 2) {
        return;
    }
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<std::size_t>(core), &cores);
    sched_setaffinity(0, sizeof(cores), &cores);
}

OnAllCores::OnAllCores()
{
    sched_getaffinity(0, sizeof(before_), &before_);
    cpu_set_t all;
    CPU_ZERO(&all);
    for (std::size_t core = 0; core < std::thread::hardware_concurrency(); ++core) {
        CPU_SET(core, &all);
    }
    sched_setaffinity(0, sizeof(all), &all);
}

OnAllCores::~OnAllCores()
{
    sched_setaffinity(0, sizeof(before_), &before_);
}

void raise_file_limit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

Seconds own_time()
{
    return read_clock(CLOCK_PROCESS_CPUTIME_ID);
}

Process::Process(const std::vector<std::string>& words, const std::string& output)
    : started_(SteadyClock::now())
{
    number_ = start(words, output);
}

Process::~Process()
{
    kill(number_, SIGTERM);
    for (int i = 0; i < 1000; ++i) {
        if (waitpid(number_, nullptr, WNOHANG) == number_) {
            return;
        }
        std::this_thread::sleep_for(10ms);
    }
    kill(number_, SIGKILL);
    waitpid(number_, nullptr, 0);
}

Seconds Process::wait_for_port(std::uint16_t port) const
{
    const auto patience = started_ + 60s;
    while (!accepts(port)) {
        siginfo_t ended{};
        waitid(P_PID, static_cast<id_t>(number_), &ended, WEXITED | WNOHANG | WNOWAIT);
        if (ended.si_pid == number_ || SteadyClock::now() > patience) {
            throw std::runtime_error("the measured program does not accept connections; see its output");
        }
        std::this_thread::sleep_for(200us);
    }
    return SteadyClock::now() - started_;
}

Seconds Process::time() const
{
    clockid_t clock{};
    if (clock_getcpuclockid(number_, &clock) != 0) {
        throw std::runtime_error("the measured program has ended; see its output");
    }
    return read_clock(clock);
}

std::int64_t Process::memory() const
{
    std::ifstream status("/proc/" + std::to_string(number_) + "/status");
    std::string word;
    while (status >> word) {
        if (word == "RssAnon:") {
            std::int64_t kibibytes = 0;
            status >> kibibytes;
            return kibibytes * 1024;
        }
    }
    throw std::runtime_error("the memory of the measured program cannot be read");
}

void run_program(const std::vector<std::string>& words, const std::string& output, const std::string& input)
{
    const auto child = start(words, output, input);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error(words[0] + " " + words[1] + " failed; see " + output);
    }
}

std::uint16_t free_port()
{
    const Descriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    auto address = loopback(0);
    socklen_t size = sizeof(address);
    if (bind(probe.number(), reinterpret_cast<const sockaddr*>(&address), size) != 0
        || getsockname(probe.number(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::runtime_error("there is no free port");
    }
    return ntohs(address.sin_port);
}

} // namespace velto::bench
