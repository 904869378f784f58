#include "store/AutoReplies.h"

#include "store/Statements.h"
#include "support/MemoryStore.h"

#include <gtest/gtest.h>

using qz::store::tables::kAutoReply;
using Texts = std::vector<std::string>;

namespace {

class AutoRepliesTest : public testing::Test, protected qz::test::MemoryStore {
protected:
    qz::store::AutoReplies replies{database, journal};
};

} // namespace

TEST_F(AutoRepliesTest, KeepsOneRowForEachUser)
{
    EXPECT_FALSE(replies.Retrieve_AutoReply("anna"));
    EXPECT_EQ(replies.Retrieve_AutoReplyMessage("anna"), "");
    add(kAutoReply, {{"UserName", "carl"}, {"Message", "carl's"}, {"Enabled", true}});
    EXPECT_TRUE(replies.Update_AutoReply("anna", "I'm away", true));
    EXPECT_TRUE(replies.Retrieve_AutoReply("Anna"));
    EXPECT_EQ(replies.Retrieve_AutoReplyMessage("anna"), "I'm away");
    EXPECT_TRUE(replies.Update_AutoReply("ANNA", "back soon", false));
    EXPECT_FALSE(replies.Retrieve_AutoReply("anna"));
    EXPECT_EQ(column(kAutoReply, "Message"), (Texts{"carl's", "back soon"}));
    EXPECT_EQ(column(kAutoReply, "UserName"), (Texts{"carl", "anna"}));
    EXPECT_TRUE(journal.failures.empty());
}

TEST_F(AutoRepliesTest, ReportsEachFailureOnceUnderItsName)
{
    database.ClosedbConnection();
    EXPECT_FALSE(replies.Retrieve_AutoReply("anna"));
    EXPECT_EQ(replies.Retrieve_AutoReplyMessage("anna"), "");
    EXPECT_FALSE(replies.Update_AutoReply("anna", "", true));
    Texts routines;
    for (const auto& failure : journal.failures) {
        routines.push_back(failure.routine);
    }
    EXPECT_EQ(routines, (Texts{"Retrieve_AutoReply", "Retrieve_AutoReplyMessage", "Update_AutoReply"}));
}
