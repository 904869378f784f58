// A program as its users run it: a process of its own.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace qz::test {

/// Starts a program with its standard streams on files.
/// @param words  the program's path and its arguments.
pid_t spawn(
    const std::vector<std::string>& words, const std::filesystem::path& in, const std::filesystem::path& out);

/// @return the exit code; -1 for a process that a signal ended, or that was killed at the deadline.
int wait_for(pid_t process, std::chrono::seconds longest);

} // namespace qz::test
