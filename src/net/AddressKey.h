// What counts as one address when something is counted by address.
#pragma once

#include <string>
#include <string_view>

namespace qz::net {

/// An IPv4 address as it stands; of an IPv6 address its network, the first 64 bits: that is what a household
/// has, and whoever has it can take a new address for every connection. Any other text as it stands.
std::string address_key(std::string_view address);

} // namespace qz::net
