// Makes a name that came from somebody else fit for a file of one's own.
#pragma once

#include <string>
#include <string_view>

namespace qz::client::transfer {

/// Longest name in bytes: together with a number and the endings of unfinished files it fits any file system.
inline constexpr std::size_t kMaxNameBytes = 200;

/// The last part of a path, without anything that hides the file, steers a terminal, turns the direction of
/// writing, is taken for an option, or names a device.
/// @return empty when nothing is left.
std::string safe_file_name(std::string_view name);

/// The name itself for 1, else with the number before the extension: "report (2).pdf".
std::string numbered_file_name(const std::string& name, int number);

} // namespace qz::client::transfer
