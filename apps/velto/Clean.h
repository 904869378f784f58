// What keeps the texts of others from steering the terminal.
#pragma once

#include <string>
#include <string_view>

namespace velto {

/// A foreign text as it may be shown in one line of a terminal: see qz::visible_line.
std::string clean(std::string_view text);

} // namespace velto
