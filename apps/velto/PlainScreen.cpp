#include "PlainScreen.h"

#include <array>
#include <cerrno>
#include <iostream>
#include <unistd.h>
#include <utility>

namespace velto {

void PlainScreen::print(const Line& line)
{
    std::cout << render(line, Colour::Off) << std::endl;
}

std::vector<std::string> PlainScreen::read()
{
    std::array<char, 4096> bytes{};
    std::vector<std::string> lines;
    const auto size = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (size < 0 && (errno == EINTR || errno == EAGAIN)) {
        return lines;
    }
    at_end_ = size <= 0;
    for (ssize_t i = 0; i < size; ++i) {
        const char byte = bytes[static_cast<std::size_t>(i)];
        if (byte == '\n') {
            lines.push_back(std::exchange(read_, {}));
        } else if (read_.size() < kMostBytes) {
            read_.push_back(byte);
        }
    }
    if (at_end_ && !read_.empty()) {
        lines.push_back(std::exchange(read_, {}));
    }
    return lines;
}

} // namespace velto
