// How many files and connections this process may have open.
#pragma once

#include <cstdint>
#include <optional>

namespace velto {

/// Raises the limit to what is wanted, as far as the system lets this user.
/// @return the limit in force when it is less than wanted.
std::optional<std::uint64_t> raise_file_limit(std::uint64_t wanted);

} // namespace velto
