#include "client/DeliveryRecord.h"
#include "client/Backoff.h"
#include "client/Conversation.h"
#include "client/Reassembly.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using namespace qz::client;

namespace {

/// Draws the greatest or the smallest number each time.
class ExtremeCrypto : public qz::platform::SodiumCrypto {
public:
    std::uint64_t random_below(std::uint64_t limit) override { return greatest ? limit - 1 : 0; }
    bool greatest = true;
};

} // namespace

TEST(Backoff, LimitDoublesToOneMinuteAndBeginsAnew)
{
    ExtremeCrypto crypto;
    Backoff backoff(crypto);
    for (const auto expected : {1000ms, 2000ms, 4000ms, 8000ms, 16000ms, 32000ms, 60000ms, 60000ms}) {
        EXPECT_EQ(backoff.next(), expected);
    }
    crypto.greatest = false;
    EXPECT_EQ(backoff.next(), 0ms);
    crypto.greatest = true;
    backoff.reset();
    EXPECT_EQ(backoff.next(), 1000ms);
}

TEST(SeenMessages, KnowSenderAndNumberUpToTheirLimit)
{
    SeenMessages seen;
    const auto message = [](MessageId id, const std::string& sender) {
        Message result;
        result.id = id;
        result.sender = sender;
        return result;
    };
    EXPECT_TRUE(seen.is_new(message(1, "bob")));
    EXPECT_TRUE(seen.is_new(message(1, "carl")));
    EXPECT_TRUE(seen.is_new(message(2, "bob")));
    EXPECT_FALSE(seen.is_new(message(1, "bob")));
    for (MessageId id = 3; id < SeenMessages::kMost; ++id) {
        seen.is_new(message(id, "bob"));
    }
    EXPECT_EQ(seen.size(), SeenMessages::kMost);
    EXPECT_FALSE(seen.is_new(message(1, "bob")));
    EXPECT_TRUE(seen.is_new(message(9, "dora"))) << "pushes the first one out";
    EXPECT_TRUE(seen.is_new(message(1, "bob")));
}

TEST(Owed, StaysUntilAcknowledged)
{
    Owed<int> owed;
    owed.add(1);
    owed.add(2);
    owed.mark_sent();
    const auto mark = owed.mark();
    owed.mark_sent();
    owed.add(3);
    EXPECT_EQ(owed.take_acknowledged(mark), 1);
    EXPECT_EQ(owed.take_acknowledged(mark), std::nullopt);
    EXPECT_EQ(*owed.next_to_send(), 3);
    owed.connection_lost();
    EXPECT_EQ(*owed.next_to_send(), 2) << "sent, not acknowledged";
    EXPECT_EQ(owed.take_acknowledged(mark), std::nullopt);
    EXPECT_EQ(owed.take_oldest(), 2);
    EXPECT_EQ(*owed.next_to_send(), 3);
    owed.clear();
    EXPECT_EQ(owed.next_to_send(), nullptr);
    EXPECT_FALSE(owed.any_unacknowledged());
}

TEST(Reassembly, JoinsInIndexOrderAndForgets)
{
    Reassembly store;
    const TimePoint start{};
    EXPECT_EQ(store.put({1, 5, 2, 2}, "b", start), std::nullopt);
    EXPECT_EQ(store.put({2, 6, 1, 1}, "whole", start), "whole") << "in the middle of another";
    EXPECT_EQ(store.put({3, 5, 2, 2}, "B", start), std::nullopt) << "again";
    EXPECT_EQ(store.put({4, 5, 1, 2}, "a", start + 30s), "aB");
    EXPECT_EQ(store.put({5, 7, 1, 2}, "a", start), std::nullopt);
    EXPECT_EQ(store.put({6, 7, 2, 2}, "b", start + 31s), std::nullopt) << "its first half is too old";
    store.clear();
    for (const auto& [index, count] : {std::pair{0, 1}, {2, 1}, {1, 0}, {1, 17}, {-1, -1}}) {
        EXPECT_EQ(store.put({1, 8, index, count}, "x", start), std::nullopt) << index << " of " << count;
    }
    EXPECT_EQ(store.size(), 0U);
    for (int i = 0; i < 10'000; ++i) {
        store.put({i, i / 15, i % 15 + 1, 16}, "x", start);
        ASSERT_LE(store.size(), Reassembly::kMaxStored);
    }
}
