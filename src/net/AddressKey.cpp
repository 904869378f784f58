#include "net/AddressKey.h"

#include "base/Text.h"

#include <algorithm>
#include <vector>

namespace qz::net {

namespace {

constexpr std::size_t kGroups = 8;
constexpr std::size_t kNetworkGroups = 4;

std::vector<std::string> groups_of(std::string_view text)
{
    std::vector<std::string> groups;
    while (!text.empty()) {
        const auto end = (std::min)(text.find(':'), text.size());
        const auto group = text.substr(0, end);
        const auto digits = group.substr((std::min)(group.find_first_not_of('0'), group.size()));
        groups.push_back(digits.empty() ? "0" : lower(digits));
        text.remove_prefix((std::min)(end + 1, text.size()));
    }
    return groups;
}

} // namespace

std::string address_key(std::string_view address)
{
    if (address.find(':') == std::string_view::npos) {
        return std::string(address);
    }
    if (address.find('.') != std::string_view::npos) { // an IPv4 address inside
        return std::string(address.substr(address.rfind(':') + 1));
    }
    address = address.substr(0, address.find('%'));
    const auto gap = address.find("::");
    auto groups = groups_of(address.substr(0, gap));
    if (gap != std::string_view::npos) {
        const auto behind = groups_of(address.substr(gap + 2));
        groups.resize((std::max)(groups.size(), kGroups - (std::min)(behind.size(), kGroups)), "0");
        groups.insert(groups.end(), behind.begin(), behind.end());
    }
    groups.resize(kNetworkGroups, "0");
    std::string key;
    for (const auto& group : groups) {
        key += group + ":";
    }
    return key + ":/64";
}

} // namespace qz::net
