#include "Screen.h"

#include "Editor.h"
#include "PlainScreen.h"

#include <cstdlib>
#include <unistd.h>

namespace velto {

std::unique_ptr<Screen> Screen::of_process(Complete complete)
{
    const char* const terminal = std::getenv("TERM");
    const bool can_edit = terminal != nullptr && *terminal != '\0' && std::string_view(terminal) != "dumb";
    if (can_edit && isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0) {
        return std::make_unique<Editor>(std::move(complete));
    }
    return std::make_unique<PlainScreen>();
}

} // namespace velto
