#include "support/SmtpSink.h"

#include <array>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace qz::test {

SmtpSink::SmtpSink(const std::string& mode)
{
    // Not inherited by other sinks: each must notice that its own input ends.
    std::array<int, 2> to_sink{};
    std::array<int, 2> from_sink{};
    if (pipe2(to_sink.data(), O_CLOEXEC) != 0 || pipe2(from_sink.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, to_sink[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, from_sink[1], STDOUT_FILENO);
    std::array<std::string, 3> words{"/usr/bin/python3", VELTO_SMTP_SINK, mode};
    std::array<char*, 4> arguments{words[0].data(), words[1].data(), words[2].data(), nullptr};
    const int failed = posix_spawn(&process_, words[0].c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(to_sink[0]);
    close(from_sink[1]);
    input_ = to_sink[1];
    output_ = fdopen(from_sink[0], "r");
    if (failed != 0 || output_ == nullptr) {
        throw std::runtime_error("the mail server of the tests does not start");
    }
    setvbuf(output_, nullptr, _IONBF, 0); // so that poll sees all that is unread
    port_ = next_line().get<std::uint16_t>();
}

SmtpSink::~SmtpSink()
{
    close(input_);
    fclose(output_);
    waitpid(process_, nullptr, 0);
}

nlohmann::json SmtpSink::next_line()
{
    constexpr int limit = 20'000; // milliseconds
    std::string line;
    for (int c = 0; c != '\n';) {
        pollfd readable{fileno(output_), POLLIN, 0};
        if (poll(&readable, 1, limit) != 1 || (c = std::fgetc(output_)) == EOF) {
            throw std::runtime_error("the mail server of the tests says nothing");
        }
        line += static_cast<char>(c);
    }
    return nlohmann::json::parse(line);
}

} // namespace qz::test
