#include "store/RoomMembers.h"

#include "base/EngineError.h"

#include <algorithm>
#include <utility>

namespace qz::store {

void RoomMembers::reset(std::int32_t upper_bound)
{
    slots_.assign(static_cast<std::size_t>((std::max)(upper_bound, 0)) + 1, {});
    free_.clear();
    for (std::int32_t slot = 0; slot <= this->upper_bound(); ++slot) {
        free_.insert(free_.end(), slot);
    }
}

std::int32_t RoomMembers::GetFreeMemberSlot()
{
    if (!free_.empty()) {
        return *free_.begin();
    }
    const auto upper = upper_bound();
    GrowRoomMembers();
    return upper + 2;
}

void RoomMembers::GrowRoomMembers()
{
    const auto upper = upper_bound();
    const auto grown = upper + static_cast<std::int32_t>(std::int64_t{upper} * 30 / 100);
    slots_.resize(static_cast<std::size_t>(grown) + 1);
    for (auto slot = upper + 1; slot <= grown; ++slot) {
        free_.insert(free_.end(), slot);
    }
}

void RoomMembers::take(std::int32_t slot, RoomMember member)
{
    if (slot < 0 || slot > upper_bound()) {
        throw runtime_error(RuntimeError::SubscriptOutOfRange);
    }
    member.InUse = true;
    slots_[static_cast<std::size_t>(slot)] = std::move(member);
    free_.erase(slot);
}

void RoomMembers::release(std::int32_t slot)
{
    slots_.at(static_cast<std::size_t>(slot)).InUse = false;
    free_.insert(slot);
}

} // namespace qz::store
