// What keeps the texts of others from steering the terminal.
#pragma once

#include <string>
#include <string_view>

namespace velto {

/// A foreign text as it may be shown in one line of a terminal. Line breaks and tabs become blanks; all other
/// control characters (C0, DEL, C1) and the characters that turn the direction of writing, which could make a
/// line read as another, are taken out; bytes that are not UTF-8 become U+FFFD.
std::string clean(std::string_view text);

} // namespace velto
