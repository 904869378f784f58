// What the commands share in talking to a person.
#pragma once

#include <string>

namespace velto {

/// Asks for a secret without showing it; from a pipe or file, reads its first line.
/// @throws CommandError when there is no line.
std::string read_secret(const std::string& prompt);

} // namespace velto
