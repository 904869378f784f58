// Text as the driver manager takes it, in UTF-16, whatever the driver's and the process's locale.
#pragma once

#include <string>
#include <string_view>

namespace qz::platform {

/// Bytes that are not UTF-8 become U+FFFD.
std::u16string wide(std::string_view text);
/// Halves of a pair become U+FFFD.
std::string narrow(std::u16string_view text);

} // namespace qz::platform
