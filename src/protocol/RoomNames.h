// Which names rooms may have where the safeguard RoomNames is on.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qz::protocol {

/// @return why a room may not have the name, as the end of a sentence; nothing when it may.
std::optional<std::string> complaint_about_room_name(std::string_view name);

} // namespace qz::protocol
