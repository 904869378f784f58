#include "Wrap.h"

#include <algorithm>
#include <cwchar>

namespace velto {

namespace {

constexpr int kIndent = 6; // behind "12:34 "

/// Cells that a text fills; colours fill none.
int cells_of(std::string_view text)
{
    int cells = 0;
    std::mbstate_t state{};
    while (!text.empty()) {
        if (text.starts_with("\x1b[")) {
            text.remove_prefix((std::min)(text.size(), text.find('m') + 1));
            continue;
        }
        wchar_t letter = 0;
        const auto length = std::mbrtowc(&letter, text.data(), text.size(), &state);
        const bool valid = length > 0 && length <= text.size();
        cells += valid ? (std::max)(wcwidth(letter), 0) : 1;
        text.remove_prefix(valid ? length : 1);
    }
    return cells;
}

} // namespace

std::string wrapped(std::string_view line, int width)
{
    constexpr int kLeastWidth = 2 * kIndent; // in less there is no room for an indent
    if (width < kLeastWidth || cells_of(line) <= width) {
        return std::string(line);
    }
    std::string result;
    int used = 0;
    for (bool first = true; !line.empty(); first = false) {
        const auto end = (std::min)(line.find(' ', 1), line.size()); // a word with the blank before it
        auto word = line.substr(0, end);
        line.remove_prefix(end);
        if (!first && used + cells_of(word) > width) {
            result.append("\r\n").append(kIndent, ' ');
            used = kIndent;
            word.remove_prefix(word.starts_with(" ") ? 1 : 0);
        }
        result.append(word);
        used += cells_of(word);
        used = used > width ? used % width : used; // longer than a row: the terminal goes on in the next ones
    }
    return result;
}

} // namespace velto
