#include "store/Buddies.h"

#include "store/Statements.h"
#include "support/MemoryStore.h"

#include <gtest/gtest.h>

using qz::store::Buddies;
using qz::store::Quiet;
using qz::store::tables::kBuddies;
using qz::store::tables::kUsers;
using Texts = std::vector<std::string>;

namespace {

class BuddiesTest : public testing::Test, protected qz::test::MemoryStore {
protected:
    BuddiesTest()
    {
        add(kUsers, {{"UserName", "anna"}});
        add(kUsers, {{"UserName", "carl"}});
    }
    std::int64_t entry(const char* owner, const char* buddy, const char* group = "")
    {
        return add(kBuddies, {{"UserName", owner}, {"Buddy", buddy}, {"Group", group}});
    }

    Buddies buddies{database, directory, accounts, parser, journal};
};

} // namespace

TEST_F(BuddiesTest, CountsThePairWhateverItsCase)
{
    entry("anna", "bert");
    entry("ANNA", "Bert");
    entry("anna", "carl");
    entry("carl", "bert");
    EXPECT_EQ(buddies.BuddyDuplicated("Anna", "BERT"), 2);
    EXPECT_EQ(buddies.BuddyDuplicated("anna", "dora"), 0);
    database.ClosedbConnection();
    EXPECT_EQ(buddies.BuddyDuplicated("anna", ""), 0);
    EXPECT_EQ(buddies.BuddyDuplicated("", "bert"), 0);
    EXPECT_TRUE(journal.failures.empty()) << "no query for an empty name";
    EXPECT_EQ(buddies.BuddyDuplicated("anna", "bert"), 0);
    ASSERT_EQ(journal.failures.size(), 1U);
    EXPECT_EQ(journal.failures[0].routine, "BuddyDuplicated");
}

TEST_F(BuddiesTest, LeavesTheOldestOfEachPair)
{
    const auto oldest = entry("anna", "bert", "first");
    entry("anna", "bert", "second");
    entry("anna", "carl");
    entry("carl", "bert");
    entry("anna", "bert", "third");
    entry("nobody", "bert"); // one alone is not looked at, though its owner has no account
    entry("ghost", "bert");
    entry("ghost", "bert");
    buddies.RemoveDuplicatedBuddies();
    EXPECT_EQ(column(kBuddies, "UserName"), (Texts{"anna", "anna", "carl", "nobody"}));
    EXPECT_EQ(column(kBuddies, "IDBuddies")[0], std::to_string(oldest));
    EXPECT_TRUE(journal.failures.empty());
}

TEST_F(BuddiesTest, LooksAgainOnlyAfterAChange)
{
    entry("anna", ""); // never counted as a duplicate, so they stay
    entry("anna", "");
    buddies.RemoveDuplicatedBuddies();
    EXPECT_EQ(column(kBuddies, "Buddy").size(), 2U);
    queries = 0;
    buddies.RemoveDuplicatedBuddies();
    EXPECT_EQ(queries, 0);

    buddies.insert("anna", "bert", "friends");
    buddies.insert("anna", "bert", "others");
    buddies.RemoveDuplicatedBuddies();
    EXPECT_EQ(column(kBuddies, "Group"), (Texts{"", "", "friends"}));

    // The owner's account goes: a change of the other table is enough.
    database.remove(kUsers, std::stoll(column(kUsers, "IDUserName").front()));
    buddies.RemoveDuplicatedBuddies();
    EXPECT_EQ(column(kBuddies, "Buddy"), Texts{"bert"});
}

TEST_F(BuddiesTest, DeletesAndTellsUnlessQuiet)
{
    entry("anna", "o'brien");
    entry("anna", "bert");
    entry("carl", "bert");
    entry("carl", "dora");
    entry("carl", "dora");
    buddies.Delete_Buddy("anna", "O'Brien", "10.0.0.1", Quiet::Yes);
    EXPECT_EQ(column(kBuddies, "Buddy"), (Texts{"bert", "bert", "dora", "dora"}));
    EXPECT_TRUE(journal.lines.empty());
    EXPECT_TRUE(directory.list_of("carl").empty()) << "not reloaded";

    buddies.Delete_Buddy("anna", "bert", "10.0.0.1", Quiet::No);
    EXPECT_EQ(column(kBuddies, "Buddy"), (Texts{"bert", "dora", "dora"})) << "the pair alone is looked at";
    EXPECT_EQ(directory.list_of("carl").size(), 3U);
    ASSERT_EQ(journal.lines.size(), 1U);
    EXPECT_EQ(journal.lines[0].message, "Buddy delete (bert) for anna");
    EXPECT_EQ(journal.lines[0].user_name + "/" + journal.lines[0].remote_ip, "anna/10.0.0.1");

    buddies.Delete_Buddy("carl' OR '1'='1", "bert", "10.0.0.1", Quiet::No);
    EXPECT_EQ(column(kBuddies, "Buddy"), (Texts{"bert", "dora", "dora"}));
    ASSERT_EQ(journal.failures.size(), 1U);
    EXPECT_EQ(journal.failures[0].routine, "Delete_Buddy");
    EXPECT_EQ(journal.lines.size(), 1U) << "a failed deletion is not logged as one";
}

TEST_F(BuddiesTest, ReadsTheFirstExactEntryOfTheSnapshot)
{
    entry("anna", "Bert", "other case");
    entry("anna", "bert", "friends");
    entry("anna", "bert", "later");
    entry("carl", "bert", "carl's");
    directory.SetMyBuddies();
    EXPECT_EQ(buddies.Retrieve_BuddyGroup("anna", "bert"), "friends");
    EXPECT_EQ(buddies.Retrieve_BuddyGroup("ANNA", "bert"), "");
    EXPECT_EQ(buddies.Retrieve_BuddyGroup("anna", "dora"), "");
}

TEST_F(BuddiesTest, UpdatesAreSeenAfterTheNextLoad)
{
    entry("anna", "bert", "friends");
    entry("carl", "bert", "work");
    directory.SetMyBuddies();
    EXPECT_TRUE(buddies.Update_BuddyPassword("bert", "anna", "it's k2"));
    EXPECT_EQ(buddies.Retrieve_BuddyPassword("anna", "bert"), "");
    directory.SetMyBuddies();
    EXPECT_EQ(buddies.Retrieve_BuddyPassword("anna", "bert"), "it's k2");

    EXPECT_TRUE(buddies.Update_BuddyDetail("anna", "bert", "new group", "a comment", "k3", "10.0.0.1"));
    EXPECT_EQ(buddies.Retrieve_BuddyGroup("anna", "bert"), "friends");
    directory.SetMyBuddies();
    const auto texts = [&](const char* owner) {
        const auto& entry = *directory.buddy_named(owner, "bert");
        return entry.Group + "/" + entry.Comment + "/" + entry.key;
    };
    EXPECT_EQ(texts("anna"), "new group/a comment/k3");
    EXPECT_EQ(texts("carl"), "work//");

    EXPECT_TRUE(buddies.Update_BuddyPassword("nobody", "anna", "k")) << "no such entry is no failure";
    EXPECT_FALSE(buddies.Update_BuddyDetail("anna", "bert", "", "it's", "", "10.0.0.1"));
    EXPECT_EQ(journal.failures.at(0).routine + journal.failures[0].address, "Update_BuddyDetail10.0.0.1");
}
