#include "store/RoomMembers.h"

#include "base/EngineError.h"

#include <gtest/gtest.h>

using qz::store::RoomMembers;

namespace {

RoomMembers full(std::int32_t upper_bound)
{
    RoomMembers members;
    members.reset(upper_bound);
    for (std::int32_t slot = 0; slot <= upper_bound; ++slot) {
        members.take(slot, {"ann", "lobby", {}, false});
    }
    return members;
}

} // namespace

TEST(RoomMembers, GrowsByThirtyPercentAndLeavesOneSlot)
{
    const struct {
        std::int32_t upper, grown, slot;
    } cases[] = {
        {10, 13, 12}, {2, 2, 4}, {3, 3, 5}, {4, 5, 6}, {6, 7, 8}, {7, 9, 9}, {0, 0, 2}, {100, 130, 102}};
    for (const auto& each : cases) {
        auto members = full(each.upper);
        EXPECT_EQ(members.GetFreeMemberSlot(), each.slot);
        EXPECT_EQ(members.upper_bound(), each.grown);
        if (each.slot > each.grown) {
            EXPECT_THROW(members.take(each.slot, {}), qz::EngineError);
            EXPECT_EQ(members.slots().size(), static_cast<std::size_t>(each.grown) + 1);
        } else {
            members.take(each.slot, {});
            EXPECT_EQ(members.GetFreeMemberSlot(), each.upper + 1) << "the slot between is found next";
        }
    }
}

TEST(RoomMembers, FindsTheFirstFreeSlot)
{
    auto members = full(4);
    members.release(3);
    members.release(1);
    members.release(1);
    EXPECT_EQ(members.GetFreeMemberSlot(), 1);
    EXPECT_FALSE(members.slots()[1].InUse);
    members.take(1, {"bert", "attic", {}, false});
    EXPECT_EQ(members.GetFreeMemberSlot(), 3);
    EXPECT_EQ(members.slots()[1].UserName, "bert");
    members.reset(-1); // a count that failed
    EXPECT_EQ(members.upper_bound(), 0);
    EXPECT_EQ(members.GetFreeMemberSlot(), 0);
}
