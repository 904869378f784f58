// The bare relay: passes messages between clients and keeps nothing. What it costs is what sockets and frames
// cost; a server's figure beside it tells what the server adds.
#pragma once

#include <cstdint>

namespace velto::bench {

/// Serves until it is told to end by a signal.
/// @throws std::runtime_error when it cannot listen.
void run_relay(std::uint16_t port);

} // namespace velto::bench
