#include "store/Directory.h"

#include "store/Statements.h"
#include "support/TestStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qz::store::tables;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Texts = std::vector<std::string>;

namespace {

class DirectoryTest : public testing::Test {
protected:
    void add_user(const char* name) { store.foreign().add(kUsers, {{"UserName", name}}); }
    template <typename Records> static const auto& at(const Records& records, int number)
    {
        return *std::next(records.begin(), number);
    }
    static Texts texts(const std::vector<const qz::store::BuddyRecord*>& entries)
    {
        Texts result;
        for (const auto* entry : entries) {
            result.push_back(entry->UserName + "-" + entry->Buddy);
        }
        return result;
    }
    Texts names() const
    {
        Texts result;
        for (const auto& user : directory.users()) {
            result.push_back(user.UserName);
        }
        return result;
    }

    qz::test::TestStore store;
    qz::store::Directory& directory = store.directory;
};

} // namespace

TEST_F(DirectoryTest, AnEmptyTableGivesOneEmptyRecord)
{
    for (const bool loaded : {false, true}) {
        if (loaded) {
            directory.SetUsers();
            directory.SetMyBuddies();
            directory.SetRooms();
        }
        EXPECT_THAT(directory.users(), SizeIs(1));
        EXPECT_THAT(directory.buddies(), SizeIs(1));
        EXPECT_THAT(directory.rooms(), SizeIs(1));
        EXPECT_EQ(directory.user_named(""), nullptr);
        EXPECT_EQ(directory.user_named_in_any_case(""), nullptr);
        EXPECT_EQ(directory.room_named(""), nullptr);
        EXPECT_THAT(directory.list_of(""), IsEmpty());
        EXPECT_THAT(directory.ListAllUsers_web(), ElementsAre(""));
        EXPECT_EQ(directory.ListAllUsersCount_web(), 0);
    }
}

TEST_F(DirectoryTest, ReadsEveryField)
{
    const auto created = qz::DateTime::parse("2020-02-29 23:59:59").value();
    store.foreign().add(kUsers,
        {{"UserName", "ann"}, {"Password", "p"}, {"IMClientInUse", "1.2"}, {"FirstName", "f"},
            {"LastName", "l"}, {"Email", "e"}, {"AccountActive", false}, {"CreationTime", created},
            {"Phone", "t"}, {"Fax", "x"}, {"HomePage", "h"}, {"Country", "c"}});
    store.foreign().add(kUsers, {{"UserName", "bert"}, {"Email", {}}});
    store.foreign().add(kBuddies,
        {{"UserName", "ann"}, {"Buddy", "bert"}, {"key", "k"}, {"Comment", "c"}, {"Group", "g"},
            {"CreationTime", created}});
    store.foreign().add(
        kRooms, {{"RoomName", "lobby"}, {"key", "k"}, {"UserName_Owner", "ann"}, {"CreationTime", created}});
    directory.SetUsers();
    directory.SetMyBuddies();
    directory.SetRooms();
    const auto& ann = at(directory.users(), 0);
    EXPECT_EQ((Texts{ann.UserName, ann.Password, ann.IMClientInUse, ann.FirstName, ann.LastName, ann.Email,
                  ann.Phone, ann.Fax, ann.HomePage, ann.Country}),
        (Texts{"ann", "p", "1.2", "f", "l", "e", "t", "x", "h", "c"}));
    EXPECT_EQ(ann.IDUserName, 1);
    EXPECT_FALSE(ann.AccountActive);
    EXPECT_EQ(ann.CreationTime, created);
    const auto& bert = at(directory.users(), 1);
    EXPECT_EQ(bert.Email + bert.Password + bert.Country, "");
    EXPECT_TRUE(bert.AccountActive);
    EXPECT_EQ(bert.CreationTime, store.clock.now());
    const auto& buddy = at(directory.buddies(), 0);
    EXPECT_EQ((Texts{buddy.UserName, buddy.Buddy, buddy.key, buddy.Comment, buddy.Group}),
        (Texts{"ann", "bert", "k", "c", "g"}));
    EXPECT_EQ(buddy.CreationTime, created);
    const auto& room = at(directory.rooms(), 0);
    EXPECT_EQ((Texts{room.RoomName, room.key, room.UserName_Owner}), (Texts{"lobby", "k", "ann"}));
}

TEST_F(DirectoryTest, KeepsOrderAndFindsTheFirst)
{
    for (const auto* name : {"carl", "ann", "bert"}) {
        add_user(name);
    }
    const char* const entries[][2] = {
        {"bert", "carl"}, {"ann", "carl"}, {"bert", "ann"}, {"ann", "bert"}, {"ann", "bert"}};
    for (const auto& [owner, buddy] : entries) {
        store.foreign().add(kBuddies, {{"UserName", owner}, {"Buddy", buddy}});
    }
    store.foreign().add(kRooms, {{"RoomName", "lobby"}, {"UserName_Owner", "first"}});
    store.foreign().add(kRooms, {{"RoomName", "lobby"}, {"UserName_Owner", "second"}});
    directory.SetUsers();
    directory.SetMyBuddies();
    directory.SetRooms();
    EXPECT_THAT(names(), ElementsAre("ann", "bert", "carl"));
    EXPECT_EQ(directory.user_named("bert"), &at(directory.users(), 1));
    EXPECT_EQ(directory.user_named("BERT"), nullptr);
    EXPECT_EQ(directory.user_named_in_any_case("BERT"), &at(directory.users(), 1));
    EXPECT_THAT(texts(directory.list_of("ann")), ElementsAre("ann-bert", "ann-bert", "ann-carl"));
    EXPECT_THAT(texts(directory.list_of("bert")), ElementsAre("bert-ann", "bert-carl"));
    EXPECT_THAT(texts(directory.entries_listing("carl")), ElementsAre("ann-carl", "bert-carl"));
    EXPECT_THAT(directory.list_of("dora"), IsEmpty());
    EXPECT_EQ(directory.room_named("lobby"), &at(directory.rooms(), 0));
    EXPECT_EQ(directory.ListAllUsers_web(), names());
    EXPECT_EQ(directory.ListAllUsersCount_web(), 3);
}

TEST_F(DirectoryTest, ReadsOnlyWhatHasChanged)
{
    add_user("ann");
    directory.SetUsers();
    int queries = 0;
    store.watch = [&](const std::string& sql) {
        queries += sql.starts_with("SELECT") ? 1 : 0;
    };
    directory.SetUsers();
    EXPECT_EQ(queries, 0);
    add_user("bert"); // another program
    directory.SetUsers();
    EXPECT_THAT(names(), ElementsAre("ann", "bert"));
    EXPECT_EQ(queries, 3) << "two counts and the rows";
    store.database.run(qz::store::statements::kInsertUser, "carl", "", "", "", "");
    directory.SetUsers(); // the engine itself, before the turn is over
    EXPECT_THAT(names(), ElementsAre("ann", "bert", "carl"));
    directory.SetRooms();
    queries = 0;
    directory.SetUsers();
    directory.SetRooms();
    EXPECT_EQ(queries, 0);
    store.database.ClosedbConnection();
    store.database.BuildConnectionString();
    queries = 0;
    directory.SetUsers();
    EXPECT_EQ(queries, 3) << "a new connection has missed what came in between";
}

TEST_F(DirectoryTest, ReadsWhatIsThereWhenTheTableGrowsMeanwhile)
{
    add_user("ann");
    directory.SetUsers();
    store.watch = [&](const std::string& sql) {
        if (sql.starts_with("SELECT * FROM users order")) { // between the count and the query
            store.watch = nullptr;
            store.foreign_program.add(kUsers, {{"UserName", "aaron"}});
        }
    };
    add_user("carl");
    directory.SetUsers();
    EXPECT_THAT(store.failures(), IsEmpty());
    EXPECT_THAT(names(), ElementsAre("aaron", "ann", "carl"));
}

TEST_F(DirectoryTest, KeepsTheCopyWhileTheDatabaseIsAway)
{
    const auto user = store.foreign().add(kUsers, {{"UserName", "ann"}});
    const auto buddy = store.foreign().add(kBuddies, {{"UserName", "ann"}, {"Buddy", "bert"}});
    const auto room = store.foreign().add(kRooms, {{"RoomName", "lobby"}});
    const auto load_all = [&] {
        directory.SetUsers();
        directory.SetMyBuddies();
        directory.SetRooms();
    };
    load_all();
    const auto expect_all = [&] {
        EXPECT_THAT(names(), ElementsAre("ann"));
        EXPECT_NE(directory.user_named("ann"), nullptr);
        EXPECT_THAT(texts(directory.list_of("ann")), ElementsAre("ann-bert"));
        EXPECT_NE(directory.room_named("lobby"), nullptr);
    };
    store.database.ClosedbConnection();
    load_all();
    expect_all();
    EXPECT_THAT(store.failures(),
        ElementsAre("get_BuddiesCount 3709", "get_CountOfBuddies 3709", "get_CountOfRooms 3709"));
    EXPECT_FALSE(directory.refresh_users());

    store.database.BuildConnectionString();
    store.watch = [](const std::string& sql) {
        if (sql.starts_with("SELECT * FROM")) {
            throw qz::database_error(qz::DatabaseError::Timeout, "locked");
        }
    };
    load_all();
    expect_all();
    EXPECT_THAT(store.failures(), SizeIs(3));

    store.watch = nullptr;
    store.foreign().remove(kUsers, user);
    store.foreign().remove(kBuddies, buddy);
    store.foreign().remove(kRooms, room);
    load_all();
    EXPECT_THAT(names(), ElementsAre("")) << "a count of 0 does empty it";
    EXPECT_THAT(directory.list_of("ann"), IsEmpty());
    EXPECT_EQ(directory.room_named("lobby"), nullptr);
}

namespace {

/// A host that asks the directory back when it hears of a failure.
class AskingJournal final : public qz::test::RecordingJournal {
public:
    void ReportError(
        std::string_view routine, const qz::EngineError& error, const std::string& address) override
    {
        qz::test::RecordingJournal::ReportError(routine, error, address);
        ask();
    }
    std::function<void()> ask;
};

} // namespace

TEST(DirectoryReport, FindsTheDirectoryWhole)
{
    qz::test::TestStore store;
    AskingJournal journal;
    qz::store::Counters counters(store.database, journal);
    qz::store::Directory directory(store.database, counters, journal);
    store.foreign().add(kUsers, {{"UserName", "bert"}});
    directory.SetUsers();
    journal.ask = [&] {
        for (const auto& user : directory.users()) {
            EXPECT_EQ(directory.user_named(user.UserName), user.UserName.empty() ? nullptr : &user);
        }
        EXPECT_EQ(directory.user_named("bert"), nullptr) << "of the copy before";
    };
    store.foreign().add(kUsers, {{"UserName", "aaron"}});
    constexpr std::int64_t too_great = 5'000'000'000;
    if (qz::test::server_under_test() != nullptr) {
        GTEST_SKIP() << "later keys of the server would be as great";
    }
    store.foreign().add(kUsers, {{"UserName", "ann"}, {"IDUserName", too_great}});
    directory.SetUsers(); // fails in its second row
    EXPECT_THAT(directory.users(), SizeIs(1));
    EXPECT_EQ(journal.failures.size(), 1U);
}
