// Lines for a terminal of a given width.
#pragma once

#include <string>
#include <string_view>

namespace velto {

/// Breaks a line at blanks so that its rows fit the terminal; every row but the first is indented under the
/// text behind the time. What does not fit a row by itself is left for the terminal to break. Ends of rows
/// are CR LF.
/// @param line   UTF-8 in which only colours are control sequences.
/// @param width  cells of a row. Needs the process's locale to be a UTF-8 one.
std::string wrapped(std::string_view line, int width);

} // namespace velto
