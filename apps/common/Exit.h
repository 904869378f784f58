// How a command ends.
#pragma once

#include <stdexcept>
#include <string>

namespace velto {

enum class Exit : int {
    Done = 0,
    Failed = 1,
    Usage = 2,
    NoServer = 3,
    Unconfirmed = 4,    // a message or a command is stored, but its recipient has not confirmed it
    Configuration = 78, // EX_CONFIG of sysexits.h
};

/// Ends a command: the message goes to standard error and says what to do next.
class CommandError : public std::runtime_error {
public:
    CommandError(Exit code, const std::string& message) : std::runtime_error(message), code_(code) { }
    Exit code() const { return code_; }

private:
    Exit code_;
};

} // namespace velto
