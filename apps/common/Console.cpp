#include "common/Console.h"

#include "base/Text.h"
#include "common/Exit.h"

#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
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

bool is_terminal()
{
    return isatty(STDIN_FILENO) == 1;
}

std::string read_line()
{
    std::string line;
    if (!std::getline(std::cin, line)) {
        throw CommandError(Exit::Usage, "nothing was read from standard input");
    }
    return qz::valid_utf8(qz::single_line(line));
}

} // namespace

std::string read_secret(const std::string& prompt)
{
    if (!is_terminal()) {
        return read_line();
    }
    std::cerr << prompt << std::flush;
    const HiddenTyping hidden;
    return read_line();
}

std::string read_secret_file(const std::string& path)
{
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line)) {
        throw CommandError(Exit::Failed, "no password can be read from the file " + qz::printable(path));
    }
    return qz::valid_utf8(qz::single_line(line));
}

std::string read_new_secret(const std::string& prompt, Ask ask)
{
    if (ask == Ask::Never || !is_terminal()) {
        return read_line();
    }
    auto secret = read_secret(prompt);
    if (read_secret("Once more: ") != secret) {
        throw CommandError(Exit::Usage, "the two differ; nothing was changed");
    }
    return secret;
}

bool confirm(const std::string& question)
{
    if (!is_terminal()) {
        throw CommandError(Exit::Usage, "nobody can be asked here: with --yes nothing is asked");
    }
    std::cerr << question << " [y/N] " << std::flush;
    const auto answer = qz::lower(read_line());
    return answer == "y" || answer == "yes";
}

std::string in_column(const std::string& text, std::size_t width)
{
    const auto shown = qz::printable(text);
    const auto length = qz::character_count(shown);
    return shown + std::string(length < width ? width - length + 1 : 1, ' ');
}

void warn(const std::string& text)
{
    std::cerr << "warning: " << qz::printable(text) << "\n";
}

void print_json(const nlohmann::ordered_json& value)
{
    std::cout << value.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
}

} // namespace velto
