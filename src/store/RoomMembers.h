// Who is in which room: a table that lives in memory only.
#pragma once

#include "store/Records.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace qz::store {

/// Never shrinks; a slot is freed by clearing InUse, and keeps its old names until it is taken again.
class RoomMembers {
public:
    /// Empties the table and sizes it to 0 … upper_bound.
    void reset(std::int32_t upper_bound);

    std::int32_t upper_bound() const { return static_cast<std::int32_t>(slots_.size()) - 1; }
    const std::vector<RoomMember>& slots() const { return slots_; }

    /// The first free slot. When there is none the table grows and the result is two past the old upper
    /// bound: the slot between stays free for the next search. After a growth by fewer than two slots that
    /// lies past the end.
    std::int32_t GetFreeMemberSlot();
    /// Grows by 30 % of the upper bound, truncated; an upper bound below 4 does not grow at all.
    void GrowRoomMembers();

    /// @param slot  a free one.
    /// @throws EngineError 9 for a slot past the end.
    void take(std::int32_t slot, RoomMember member);
    void release(std::int32_t slot);

    /// The first slot in use that holds this membership; names are compared exactly.
    std::optional<std::int32_t> first_slot(std::string_view user_name, std::string_view room_name) const;
    /// Slots in use, ascending.
    const std::set<std::int32_t>& in_room(std::string_view room_name) const;
    const std::set<std::int32_t>& of_user(std::string_view user_name) const;

private:
    using Index = std::map<std::string, std::set<std::int32_t>, std::less<>>;

    static void erase(Index& index, const std::string& name, std::int32_t slot);

    std::vector<RoomMember> slots_{1};
    std::set<std::int32_t> free_{0}; // so that the first free slot is found without a scan
    Index by_room_;
    Index by_user_;
};

} // namespace qz::store
