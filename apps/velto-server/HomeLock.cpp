#include "HomeLock.h"

#include "common/Exit.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace velto {

namespace {

std::filesystem::path lock_file(const Home& home)
{
    return home.folder() / "VELTO_Server.pid";
}

pid_t process_in(int descriptor)
{
    std::array<char, 16> text{};
    const auto length = pread(descriptor, text.data(), text.size() - 1, 0);
    return length > 0 ? static_cast<pid_t>(std::strtol(text.data(), nullptr, 10)) : 0;
}

/// Whoever asks who runs here holds the lock for a moment, too: it is tried again for a little while.
bool lock_at_last(int descriptor)
{
    constexpr int kTries = 10;
    constexpr std::chrono::milliseconds kPause(10);
    for (int tries = 1; flock(descriptor, LOCK_EX | LOCK_NB) != 0; ++tries) {
        if (tries == kTries) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

} // namespace

HomeLock::HomeLock(const Home& home)
    : descriptor_(open(lock_file(home).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644))
{
    if (descriptor_ < 0) {
        throw CommandError(Exit::Failed,
            "the file " + lock_file(home).string() + " cannot be opened: "
                + std::generic_category().message(errno) + "\nRun the server as the owner of the home.");
    }
    if (!lock_at_last(descriptor_)) {
        const auto process = process_in(descriptor_);
        close(descriptor_);
        throw CommandError(Exit::Failed,
            "a server runs in " + home.folder().string() + " already (process " + std::to_string(process)
                + ")\nStop it first, or give this one a home of its own with --home.");
    }
    const auto text = std::to_string(getpid()) + "\n";
    if (ftruncate(descriptor_, 0) != 0 || pwrite(descriptor_, text.data(), text.size(), 0) < 0) {
        close(descriptor_);
        throw CommandError(
            Exit::Failed, "the file " + lock_file(home).string() + " cannot be written; is the disk full?");
    }
}

HomeLock::~HomeLock()
{
    // The file stays: taking it away would let two others lock two files of the same name.
    [[maybe_unused]] const auto ignored = ftruncate(descriptor_, 0);
    close(descriptor_);
}

std::optional<pid_t> HomeLock::holder(const Home& home)
{
    const int descriptor = open(lock_file(home).c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0 && errno != ENOENT) {
        throw CommandError(Exit::Failed,
            "the file " + lock_file(home).string()
                + " cannot be read by this user\nRun the command as the owner of the home.");
    }
    if (descriptor < 0) {
        return std::nullopt;
    }
    const bool held = flock(descriptor, LOCK_SH | LOCK_NB) != 0;
    const auto process = process_in(descriptor);
    close(descriptor);
    return held ? std::optional(process) : std::nullopt;
}

} // namespace velto
