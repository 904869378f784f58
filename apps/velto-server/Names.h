// Which names accounts and rooms may have. The engine takes any text; these are the names that work
// everywhere.
#pragma once

#include <string>

namespace velto {

/// @throws CommandError 2 that says what is wrong.
void require_user_name(const std::string& name);
void require_room_name(const std::string& name);

} // namespace velto
