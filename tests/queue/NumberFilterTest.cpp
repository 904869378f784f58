#include "queue/NumberFilter.h"

#include <gtest/gtest.h>

using namespace qz;

TEST(NumberFilter, ForgetsNoNumberAndTakesFewNewOnesForKnown)
{
    queue::NumberFilter filter;
    filter.make_room(100'000); // the others come as a surprise
    EXPECT_FALSE(filter.may_hold(0));
    constexpr int kNumbers = 300'000; // in three layers
    for (int i = 0; i < kNumbers; ++i) {
        filter.add(i);
        filter.add(-1.5 * i);
    }
    int forgotten = 0;
    int mistaken = 0;
    for (int i = 0; i < kNumbers; ++i) {
        forgotten += filter.may_hold(i) && filter.may_hold(-1.5 * i) ? 0 : 1;
        mistaken += filter.may_hold(9e15 - i) ? 1 : 0;
    }
    EXPECT_EQ(forgotten, 0);
    EXPECT_LT(mistaken, kNumbers / 2000);
    filter.clear();
    EXPECT_FALSE(filter.may_hold(1));
}
