#include "support/ServerProgram.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace qz::test {

namespace {

const passwd* account(const std::string& user)
{
    return geteuid() == 0 && !user.empty() ? getpwnam(user.c_str())
                                           : nullptr; // NOLINT(concurrency-mt-unsafe)
}

} // namespace

std::uint16_t free_port()
{
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (bind(probe, raw, size) != 0 || getsockname(probe, raw, &size) != 0) {
        throw std::runtime_error("no free port");
    }
    close(probe);
    return ntohs(address.sin_port);
}

ServerProgram::ServerProgram(
    std::vector<std::string> words, const std::string& user, const std::filesystem::path& log)
{
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (auto& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const auto* owner = account(user);
    process_ = fork();
    if (process_ == 0) {
        const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
        const int output = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        dup2(input, STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        if (owner != nullptr
            && (setgroups(0, nullptr) != 0 || setgid(owner->pw_gid) != 0 || setuid(owner->pw_uid) != 0)) {
            _exit(126);
        }
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (chdir("/") == 0) {
            execv(argv[0], argv.data());
        }
        _exit(127);
    }
}

void ServerProgram::send_signal(int signal) const
{
    kill(process_, signal);
}

void ServerProgram::send_signal_to_all(int signal) const
{
    for (const auto process : processes()) {
        kill(process, signal);
    }
}

double ServerProgram::processor_time() const
{
    double seconds = 0;
    for (const auto process : processes()) {
        clockid_t clock{};
        timespec time{};
        if (clock_getcpuclockid(process, &clock) == 0 && clock_gettime(clock, &time) == 0) {
            seconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
        }
    }
    return seconds;
}

/// The children come first.
std::vector<pid_t> ServerProgram::processes() const
{
    std::vector<pid_t> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream status(entry.path() / "stat");
        pid_t process = 0;
        pid_t parent = 0;
        std::string name;
        std::string state;
        if (status >> process >> name >> state >> parent && parent == process_) {
            found.push_back(process);
        }
    }
    found.push_back(process_);
    return found;
}

void ServerProgram::freeze() const
{
    // A signal that was sent is not yet acted upon: a thread on another processor still runs for a moment,
    // and may start another process.
    do {
        send_signal_to_all(SIGSTOP);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    } while (any_thread_runs());
}

bool ServerProgram::any_thread_runs() const
{
    for (const auto& process : std::filesystem::directory_iterator("/proc")) {
        std::error_code gone; // processes come and go while we look
        auto thread = std::filesystem::directory_iterator(process.path() / "task", gone);
        for (; !gone && thread != std::filesystem::directory_iterator(); thread.increment(gone)) {
            std::ifstream status(thread->path() / "stat");
            pid_t number = 0;
            pid_t parent = 0;
            std::string name;
            std::string state;
            const bool is_ours = status >> number >> name >> state >> parent
                && (parent == process_ || process.path().filename() == std::to_string(process_));
            if (is_ours && state != "T" && state != "Z") { // ended, which its stopped parent cannot notice
                return true;
            }
        }
    }
    return false;
}

int ServerProgram::wait()
{
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void ServerProgram::end()
{
    if (process_ != 0) {
        send_signal_to_all(SIGKILL); // children that were left alone might go on for a moment
        wait();
    }
}

void give_to(const std::filesystem::path& folder, const std::string& user)
{
    if (const auto* owner = account(user); owner != nullptr) {
        if (chown(folder.c_str(), owner->pw_uid, owner->pw_gid) != 0) {
            throw std::runtime_error("cannot give a folder to " + user);
        }
    }
}

} // namespace qz::test
