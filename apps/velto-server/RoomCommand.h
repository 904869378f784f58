// velto-server room: the rooms of a home.
#pragma once

#include "Home.h"
#include "ListForm.h"

#include <string>

namespace velto {

void run_room_list(const Home& home, ListForm form);
/// The name is stored in lower case, as clients write to it.
/// @throws CommandError 1 when the name is taken or there is no such owner.
void run_room_add(const Home& home, const std::string& name, const std::string& owner);
/// @throws CommandError 1 when there is no such room.
void run_room_delete(const Home& home, const std::string& name);

} // namespace velto
