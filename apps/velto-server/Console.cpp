#include "Console.h"

#include "Exit.h"
#include "base/Text.h"

#include <iostream>
#include <termios.h>
#include <unistd.h>

namespace velto {

namespace {

/// Keeps the terminal from showing what is typed, for its lifetime.
class HiddenTyping {
public:
    HiddenTyping()
    {
        tcgetattr(STDIN_FILENO, &before_);
        auto hidden = before_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    HiddenTyping(const HiddenTyping&) = delete;
    HiddenTyping& operator=(const HiddenTyping&) = delete;
    ~HiddenTyping()
    {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
        std::cerr << "\n";
    }

private:
    termios before_{};
};

} // namespace

std::string read_secret(const std::string& prompt)
{
    std::string line;
    bool read = false;
    if (isatty(STDIN_FILENO) == 1) {
        std::cerr << prompt << std::flush;
        const HiddenTyping hidden;
        read = static_cast<bool>(std::getline(std::cin, line));
    } else {
        read = static_cast<bool>(std::getline(std::cin, line));
    }
    if (!read) {
        throw CommandError(Exit::Usage, "nothing was read from standard input");
    }
    return qz::valid_utf8(qz::single_line(line));
}

} // namespace velto
