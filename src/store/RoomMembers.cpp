#include "store/RoomMembers.h"

#include "base/EngineError.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace qz::store {

namespace {

const std::set<std::int32_t>& slots_in(
    const std::map<std::string, std::set<std::int32_t>, std::less<>>& index, std::string_view name)
{
    static const std::set<std::int32_t> kNone;
    const auto found = index.find(name);
    return found == index.end() ? kNone : found->second;
}

} // namespace

void RoomMembers::reset(std::int32_t upper_bound)
{
    slots_.assign(static_cast<std::size_t>((std::max)(upper_bound, 0)) + 1, {});
    free_.clear();
    by_room_.clear();
    by_user_.clear();
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
    assert(!slots_[static_cast<std::size_t>(slot)].InUse);
    member.InUse = true;
    by_room_[member.RoomName].insert(slot);
    by_user_[member.UserName].insert(slot);
    slots_[static_cast<std::size_t>(slot)] = std::move(member);
    free_.erase(slot);
}

void RoomMembers::release(std::int32_t slot)
{
    auto& member = slots_.at(static_cast<std::size_t>(slot));
    member.InUse = false;
    erase(by_room_, member.RoomName, slot);
    erase(by_user_, member.UserName, slot);
    free_.insert(slot);
}

std::optional<std::int32_t> RoomMembers::first_slot(
    std::string_view user_name, std::string_view room_name) const
{
    const auto& slots = of_user(user_name); // one user is in few rooms, one room may hold everybody
    const auto found = std::find_if(slots.begin(), slots.end(),
        [&](std::int32_t slot) { return slots_[static_cast<std::size_t>(slot)].RoomName == room_name; });
    return found == slots.end() ? std::nullopt : std::optional(*found);
}

const std::set<std::int32_t>& RoomMembers::in_room(std::string_view room_name) const
{
    return slots_in(by_room_, room_name);
}

const std::set<std::int32_t>& RoomMembers::of_user(std::string_view user_name) const
{
    return slots_in(by_user_, user_name);
}

void RoomMembers::erase(Index& index, const std::string& name, std::int32_t slot)
{
    const auto found = index.find(name);
    if (found != index.end() && found->second.erase(slot) == 1 && found->second.empty()) {
        index.erase(found);
    }
}

} // namespace qz::store
