// In which form a command lists.
#pragma once

namespace velto {

enum class ListForm {
    Table, // for people
    Json,
    Names, // only the names, one a line: for scripts and for completing a command line
};

} // namespace velto
