#include "Editor.h"

#include "Wrap.h"
#include "common/Exit.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace velto {

namespace {

constexpr int kMostHistory = 200;
constexpr int kKeyTime = 50; // milliseconds in which the bytes of one key follow each other

/// libedit measures and writes letters by the locale; all texts here are UTF-8.
void use_utf8()
{
    constexpr std::size_t kLongestLetter = 4;
    if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX < kLongestLetter) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
}

std::wstring widen(const std::string& text)
{
    std::wstring wide(text.size(), L'\0');
    const auto length = std::mbstowcs(wide.data(), text.c_str(), wide.size());
    wide.resize(length == static_cast<std::size_t>(-1) ? 0 : length);
    return wide;
}

int columns()
{
    constexpr int kUsual = 80;
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

/// Where the cursor comes to behind a text that begins in the first column. A letter that does not fit the
/// end of a row begins the next one.
struct Position {
    int row = 0;
    int column = 0;
};

Position behind(std::wstring_view text, int width)
{
    int cells = 0;
    for (const wchar_t letter : text) {
        const int needed = (std::max)(wcwidth(letter), 0);
        const int left = width - cells % width;
        cells += (needed > left ? left : 0) + needed;
    }
    return {cells / width, cells % width};
}

/// Control characters, which can come in only by pasting, as ^X.
std::wstring visible(std::wstring_view text)
{
    constexpr wchar_t kDelete = 0x7F;
    std::wstring result;
    for (const wchar_t letter : text) {
        if (letter < L' ' || letter == kDelete) {
            result += L'^';
            result += static_cast<wchar_t>(letter ^ 0x40);
        } else {
            result += wcwidth(letter) < 0 ? L'?' : letter;
        }
    }
    return result;
}

std::string narrow(const std::wstring& wide)
{
    std::string text(wide.size() * MB_CUR_MAX, '\0');
    const auto length = std::wcstombs(text.data(), wide.c_str(), text.size());
    text.resize(length == static_cast<std::size_t>(-1) ? 0 : length);
    return text;
}

} // namespace

Editor::Editor(Complete complete)
    : complete_(std::move(complete)),
      colour_(
          std::getenv("NO_COLOR") == nullptr || *std::getenv("NO_COLOR") == '\0' ? Colour::On : Colour::Off),
      nowhere_(std::fopen("/dev/null", "w")), history_(history_init())
{
    use_utf8();
    if (nowhere_ == nullptr) {
        throw CommandError(Exit::Failed, "/dev/null cannot be opened");
    }
    // It also wants a terminal behind its output.
    editor_.reset(el_init_fd(
        "velto", stdin, nowhere_.get(), nowhere_.get(), STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO));
    auto* const editor = editor_.get();
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_SIGNAL, 0);
    el_wset(editor, EL_GETCFN, &Editor::next_character);
    HistEvent event{};
    history(history_.get(), &event, H_SETSIZE, kMostHistory);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    el_set(editor, EL_HIST, history, history_.get());
    bind_keys();
    el_set(editor, EL_UNBUFFERED, 1);
}

Editor::~Editor()
{
    write(erased());
    el_set(editor_.get(), EL_UNBUFFERED, 0);
}

void Editor::bind_keys()
{
    auto* const editor = editor_.get();
    // The wide form keeps the names as they are; the narrow one makes copies that nobody frees.
    el_wset(editor, EL_ADDFN, L"velto-end-or-delete", L"Ends on an empty line, else deletes",
        &Editor::end_or_delete);
    el_set(editor, EL_BIND, "^D", "velto-end-or-delete", nullptr);
    el_wset(editor, EL_ADDFN, L"velto-complete", L"Completes a command or a name", &Editor::complete_word);
    el_set(editor, EL_BIND, "^I", "velto-complete", nullptr);
    el_wset(editor, EL_ADDFN, L"velto-clear-screen", L"Clears the screen", &Editor::clear_screen);
    el_set(editor, EL_BIND, "^L", "velto-clear-screen", nullptr);
    // These wait for further keys, and nobody may be kept waiting.
    for (const char* const key : {"^V", "\\ex", "\\eX", "^R", "^S"}) {
        el_set(editor, EL_BIND, "-r", key, nullptr);
    }
}

Editor& Editor::self(EditLine* editor)
{
    void* data = nullptr;
    el_get(editor, EL_CLIENTDATA, &data);
    return *static_cast<Editor*>(data);
}

/// Reads what is there.
/// @param wait  milliseconds to wait for it.
bool Editor::fill(int wait)
{
    pollfd waiting{STDIN_FILENO, POLLIN, 0};
    if (::poll(&waiting, 1, wait) <= 0) {
        return false;
    }
    std::array<char, 4096> bytes{};
    const auto size = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (size <= 0) {
        at_end_ = size == 0 || (errno != EINTR && errno != EAGAIN);
        return false;
    }
    input_.append(bytes.data(), static_cast<std::size_t>(size));
    return true;
}

/// Hands the next letter to libedit. In the middle of a key or a letter it waits a moment for the rest.
int Editor::next_character(EditLine* editor, wchar_t* character)
{
    auto& my = self(editor);
    while (!my.input_.empty() || my.fill(kKeyTime)) {
        std::mbstate_t state{};
        const auto length = std::mbrtowc(character, my.input_.data(), my.input_.size(), &state);
        if (length == static_cast<std::size_t>(-2)) { // the letter is not whole yet
            if (my.fill(kKeyTime)) {
                continue;
            }
            my.input_.clear();
            return 0;
        }
        if (length == static_cast<std::size_t>(-1)) {
            my.input_.erase(0, 1); // no UTF-8
            continue;
        }
        my.input_.erase(0, (std::max)(length, std::size_t{1}));
        return 1;
    }
    return 0;
}

unsigned char Editor::end_or_delete(EditLine* editor, int /*key*/)
{
    const auto* const line = el_wline(editor);
    if (line->buffer == line->lastchar) {
        self(editor).at_end_ = true;
        return CC_NORM;
    }
    if (line->cursor == line->lastchar) {
        return CC_ERROR;
    }
    el_cursor(editor, 1);
    el_wdeletestr(editor, 1);
    return CC_REFRESH;
}

unsigned char Editor::complete_word(EditLine* editor, int /*key*/)
{
    const auto* const line = el_line(editor);
    const std::string before(line->buffer, line->cursor);
    const auto found = self(editor).complete_(before);
    if (found.empty()) {
        return CC_ERROR;
    }
    const auto blank = before.rfind(' ');
    const auto word = before.substr(blank == std::string::npos ? 0 : blank + 1);
    auto common = found.front();
    for (const auto& each : found) {
        const auto differs = std::mismatch(common.begin(), common.end(), each.begin(), each.end());
        common.erase(differs.first, common.end());
    }
    if (found.size() == 1) {
        common += ' ';
    }
    if (common.size() <= word.size()) {
        return CC_ERROR;
    }
    el_insertstr(editor, common.substr(word.size()).c_str());
    return CC_REFRESH;
}

unsigned char Editor::clear_screen(EditLine* editor, int /*key*/)
{
    write("\x1b[H\x1b[2J");
    self(editor).cursor_row_ = 0;
    return CC_NORM;
}

std::vector<std::string> Editor::read()
{
    std::vector<std::string> lines;
    if (!fill(0)) {
        return lines;
    }
    while (!input_.empty() && !at_end_) {
        int ignored = 0;
        el_wgets(editor_.get(), &ignored); // one key
        auto line = typed();
        if (line.ends_with("\n")) {
            line.pop_back();
            take_line(line);
            lines.push_back(std::move(line));
        }
    }
    const auto before = erased();
    write(before + drawn());
    return lines;
}

/// A line is complete: what was typed goes from the screen, as it is printed anew where it belongs.
void Editor::take_line(const std::string& line)
{
    if (!line.empty()) {
        HistEvent event{};
        history(history_.get(), &event, H_ENTER, line.c_str());
    }
    el_set(editor_.get(), EL_UNBUFFERED, 0); // begins an empty line
    el_set(editor_.get(), EL_UNBUFFERED, 1);
}

std::string Editor::typed() const
{
    const auto* const line = el_line(editor_.get());
    return {line->buffer, line->lastchar};
}

/// What takes the line from the screen.
std::string Editor::erased() const
{
    const auto up = cursor_row_ > 0 ? "\x1b[" + std::to_string(cursor_row_) + "A" : std::string{};
    return "\r" + up + (last_row_ > 0 ? "\x1b[J" : "\x1b[K");
}

/// What puts the line on the screen, from the first column of an empty row on.
std::string Editor::drawn()
{
    const auto* const line = el_wline(editor_.get());
    const auto prompt = widen(prompt_);
    const auto before = prompt + visible({line->buffer, line->cursor});
    const auto all = before + visible({line->cursor, line->lastchar});
    const int width = columns();
    const auto end = behind(all, width);
    const auto cursor = behind(before, width);
    std::string text = colour_ == Colour::On ? "\x1b[1m" + prompt_ + "\x1b[0m" : prompt_;
    text += narrow(all.substr(prompt.size()));
    if (end.column == 0 && end.row > 0) {
        text += "\r\n"; // the terminal goes on only with the next letter
    }
    if (cursor.row < end.row) {
        text += "\x1b[" + std::to_string(end.row - cursor.row) + "A";
    }
    text += "\r";
    if (cursor.column > 0) {
        text += "\x1b[" + std::to_string(cursor.column) + "C";
    }
    cursor_row_ = cursor.row;
    last_row_ = end.row;
    return text;
}

void Editor::write(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void Editor::print(const Line& line)
{
    const auto before = erased();
    write(before + wrapped(render(line, colour_), columns()) + "\r\n" + drawn());
}

void Editor::set_prompt(const std::string& prompt)
{
    if (prompt != prompt_) {
        prompt_ = prompt;
        const auto before = erased();
        write(before + drawn());
    }
}

void Editor::redraw()
{
    el_set(editor_.get(), EL_PREP_TERM, 0);
    el_set(editor_.get(), EL_PREP_TERM, 1);
    drawn(); // the terminal has moved what stood there into rows of its new width
    const auto before = erased();
    write(before + drawn());
}

} // namespace velto
