#include "net/ChunkStore.h"

#include "base/EngineError.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>

using qz::net::ChunkStore;

namespace {

class ChunkStoreTest : public testing::Test {
protected:
    std::optional<std::string> put(int socket, std::int32_t message, std::int32_t index, std::int32_t count,
        const std::string& text = "x", int seconds = 0)
    {
        return store.put({static_cast<std::int16_t>(socket), ChunkStore::Sender::User},
            {1, message, index, count}, text, start.plus_seconds(seconds));
    }
    int failure(int socket, std::int32_t message, std::int32_t index, std::int32_t count)
    {
        try {
            put(socket, message, index, count);
            return 0;
        } catch (const qz::EngineError& error) {
            return error.number();
        }
    }

    const qz::DateTime start = qz::DateTime::parse("2026-03-02 09:00:00").value();
    qz::test::TemporaryFolder folder;
    qz::config::IniFile ini{folder.path() / "settings.ini"};
    qz::config::Deployment deployment{ini};
    ChunkStore store{deployment};
};

} // namespace

TEST_F(ChunkStoreTest, JoinsInIndexOrder)
{
    EXPECT_EQ(put(1, 5, 1, 1, "alone"), "alone");
    EXPECT_EQ(put(1, 7, 3, 3, "c"), std::nullopt);
    EXPECT_EQ(put(2, 7, 1, 3, "of another sender"), std::nullopt);
    EXPECT_EQ(put(1, 8, 2, 3, "of another message"), std::nullopt);
    EXPECT_EQ(put(1, 7, 1, 3, "old"), std::nullopt);
    EXPECT_EQ(put(1, 7, 1, 3, "a"), std::nullopt);
    EXPECT_EQ(put(1, 7, 2, 3, "b"), "abc");
    EXPECT_EQ(store.size(), 2U);
    EXPECT_EQ(put(1, 7, 2, 3, "b"), std::nullopt) << "nothing is left of the message";
    store.drop(1);
    EXPECT_EQ(store.size(), 1U);
    EXPECT_EQ(put(2, 7, 2, 3), std::nullopt);
    EXPECT_EQ(put(2, 7, 3, 3), "of another senderxx");
}

TEST_F(ChunkStoreTest, RefusesNumbersThatMakeNoSense)
{
    constexpr auto largest = (std::numeric_limits<std::int32_t>::max)();
    const std::int32_t cases[][2] = {{0, 1}, {0, 0}, {1, 0}, {3, 2}, {-1, 2}, {largest, 1}, {1, -1}};
    for (const auto& [index, count] : cases) {
        EXPECT_EQ(failure(1, 1, index, count), 9) << index << " of " << count;
    }
    EXPECT_EQ(store.size(), 0U);
    EXPECT_EQ(put(1, largest, largest, largest), std::nullopt);
    EXPECT_EQ(store.size(), 1U);
}

TEST_F(ChunkStoreTest, AnotherCountBeginsAnotherMessage)
{
    put(1, 7, 5, 5, "e");
    EXPECT_EQ(put(1, 7, 1, 2, "a"), std::nullopt) << "the fifth of five is none of two";
    EXPECT_EQ(store.size(), 1U);
    EXPECT_EQ(put(1, 7, 2, 2, "b"), "ab");
    EXPECT_EQ(store.size(), 0U);
}

TEST_F(ChunkStoreTest, GivesUpWhatIsOlderThanThirtySeconds)
{
    put(1, 7, 1, 3, "a", 0);
    put(1, 7, 2, 3, "b", 1);
    put(2, 1, 1, 2, "c", 40);
    store.sweep(start.plus_seconds(30));
    EXPECT_EQ(store.size(), 3U);
    store.sweep(start.plus_seconds(31));
    EXPECT_EQ(store.size(), 2U);
    EXPECT_EQ(put(1, 7, 3, 3, "c", 31), std::nullopt);
    EXPECT_EQ(put(1, 7, 1, 3, "A", 31), "Abc");
    store.sweep(start.plus_seconds(10)); // the clock was set back
    EXPECT_EQ(store.size(), 1U);
}

TEST_F(ChunkStoreTest, ALimitCountsWhatIsKept)
{
    for (const auto* limit : {"", "3"}) { // the common table, and one connection's own
        ini.WriteIniValue("Safeguards", "ChunksPerConnection", limit);
        const auto most = *limit == '\0' ? static_cast<std::int32_t>(ChunkStore::kMaxChunks) : 3;
        for (int i = 1; i <= most; ++i) {
            put(1, i, 1, 2);
        }
        EXPECT_EQ(failure(1, most + 1, 1, 2), 7);
        EXPECT_EQ(failure(2, 1, 1, 2), most == 3 ? 0 : 7);
        EXPECT_EQ(put(1, most + 2, 1, 1), "x") << "a message in one piece needs no capacity";
        EXPECT_EQ(put(1, 2, 1, 2, "again"), std::nullopt) << "nor does a chunk in place of another";
        EXPECT_EQ(put(1, 2, 2, 2, "!"), "again!") << "nor the one that makes a message whole";
        EXPECT_EQ(failure(1, 2, 1, 3), 0) << "whose chunks are kept no longer";
        EXPECT_EQ(failure(1, 4000, 1, 2), 7);
        EXPECT_EQ(failure(1, 2, 1, 4), 0) << "nor are those of a message that begins anew";
        EXPECT_EQ(failure(1, 4000, 1, 2), 7);
        store.drop(1);
        EXPECT_EQ(failure(1, 4000, 1, 2), 0);
        store.clear();
        EXPECT_EQ(store.size(), 0U);
    }
    put(1, 1, 1, 2, "a", 0);
    put(1, 2, 1, 2, "b", 20);
    put(1, 3, 1, 2, "c", 20);
    store.sweep(start.plus_seconds(31));
    EXPECT_EQ(failure(1, 4, 1, 2), 0);
    EXPECT_EQ(failure(1, 5, 1, 2), 7);
}
