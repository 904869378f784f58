#include "system/Process.h"

#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace qz::test {

using namespace std::chrono_literals;

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

} // namespace qz::test
