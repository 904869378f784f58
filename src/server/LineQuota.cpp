#include "server/LineQuota.h"

#include "net/AddressKey.h"

namespace qz::server {

bool LineQuota::takes(std::string_view address)
{
    const auto most = deployment_.log_lines_per_address();
    if (!most) {
        return true;
    }
    auto key = net::address_key(address);
    if (minutes_.size() >= kMostAddresses && !minutes_.contains(key)) {
        key = kOthers;
    }
    auto& minute = minutes_.try_emplace(std::move(key), Minute{clock_.steady()}).first->second;
    const bool writes = minute.written < *most;
    ++(writes ? minute.written : minute.unwritten);
    return writes;
}

std::vector<LineQuota::Unwritten> LineQuota::end_minutes()
{
    return end_until(clock_.steady() - std::chrono::minutes(1));
}

std::vector<LineQuota::Unwritten> LineQuota::end_all()
{
    return end_until(clock_.steady());
}

std::vector<LineQuota::Unwritten> LineQuota::end_until(Time last_begin)
{
    std::vector<Unwritten> unwritten;
    std::erase_if(minutes_, [&](const auto& entry) {
        const auto& [address, minute] = entry;
        if (minute.begin > last_begin) {
            return false;
        }
        if (minute.unwritten > 0) {
            unwritten.push_back({address, minute.unwritten});
        }
        return true;
    });
    return unwritten;
}

} // namespace qz::server
