// How many files and connections this process may have open.
#pragma once

#include <cstdint>
#include <optional>

namespace velto {

/// How many files a server needs that may have this many connections at a time: each is one.
/// @param max_connections  nothing when there is no limit; the pool of sockets grows by itself then.
std::uint64_t files_for(std::optional<std::int16_t> max_connections);
/// The connections that are possible with this many files.
std::uint64_t connections_with(std::uint64_t files);

/// Raises the limit to what is wanted, as far as the system lets this user.
/// @return the limit in force when it is less than wanted.
std::optional<std::uint64_t> raise_file_limit(std::uint64_t wanted);

} // namespace velto
