// What comes from the server, for programs.
#pragma once

#include "client/Incoming.h"

#include <nlohmann/json.hpp>
#include <optional>

namespace velto {

/// One event; nothing for what only repeats a state, as the lists after a logon do. Texts stand in it as they
/// came.
std::optional<nlohmann::ordered_json> json_of(const qz::client::Incoming& incoming);

/// In one line of ASCII: whatever a text holds, it can be shown on a terminal.
std::string json_line(const nlohmann::ordered_json& value);

} // namespace velto
