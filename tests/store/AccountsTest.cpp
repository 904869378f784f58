#include "store/Accounts.h"

#include "store/Statements.h"
#include "support/TestStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

using namespace qz::store::tables;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class AccountsTest : public testing::Test {
protected:
    AccountsTest()
    {
        store.foreign().add(kUsers,
            {{"UserName", "ann"}, {"Password", "secret"}, {"Email", "ann@example.org"}, {"FirstName", "Ann"},
                {"LastName", "Arbor"}, {"Phone", "1"}, {"Fax", "2"}, {"HomePage", "3"}, {"Country", "4"}});
        store.foreign().add(kUsers, {{"UserName", "bert"}, {"Password", "other"}, {"AccountActive", false}});
        store.foreign().add(kUsers, {{"UserName", "Mixed"}, {"Password", "x"}});
        store.directory.SetUsers();
    }
    std::string password_of(const std::string& name)
    {
        for (const auto& row : store.foreign().rows(kUsers, {"UserName", "Password"})) {
            if (row.starts_with(name + "|")) {
                return row.substr(name.size() + 1);
            }
        }
        return "no such account";
    }
    std::string last_line() const
    {
        const auto& line = store.journal.lines.back();
        return line.message + "|" + line.user_name + "|" + line.remote_ip;
    }

    qz::test::TestStore store;
    qz::store::Accounts accounts{
        store.database, store.directory, store.parser, store.secrets.cipher, store.journal};
};

} // namespace

TEST_F(AccountsTest, NamesCompareExactlyAndPasswordsByTheLowerCasedName)
{
    const struct {
        const char *name, *password;
        bool exists, enabled, passes;
    } cases[] = {{"ann", "secret", true, true, true}, {"ANN", "secret", false, false, true},
        {"ann", "Secret", true, true, false}, {"ann", "", true, true, false},
        {"bert", "other", true, false, true}, {"ann ", "secret", false, false, false},
        {"Mixed", "x", true, true, false}, {"dora", "", false, false, false}, {"", "", false, false, false},
        {"o'x", "' OR ''='", false, false, false}};
    for (const auto& each : cases) {
        EXPECT_EQ(accounts.ScreenNameExist(each.name), each.exists) << each.name;
        EXPECT_EQ(accounts.ScreenName_Enabled(each.name), each.enabled) << each.name;
        EXPECT_EQ(accounts.CheckScreenName_Password(each.name, each.password), each.passes) << each.name;
    }
    EXPECT_THAT(store.failures(), IsEmpty());
}

TEST_F(AccountsTest, CreatesAnAccount)
{
    EXPECT_TRUE(accounts.set_NewScreenName("Dora", "d'@example.org", "D'", "O'Hara", "it's"));
    EXPECT_EQ(last_line(), "Addded new screenname (Dora)||");
    EXPECT_EQ(store.foreign().rows(kUsers, {"UserName", "Password", "FirstName", "LastName", "Email"}).back(),
        "dora|it's|D'|O'Hara|d'@example.org");
    EXPECT_TRUE(accounts.CheckScreenName_Password("dora", "it's"));
    EXPECT_FALSE(accounts.set_NewScreenName("dora", "", "", "", ""));
    EXPECT_THAT(store.failures(), IsEmpty());
    EXPECT_FALSE(accounts.set_NewScreenName("DORA", "", "", "", ""))
        << "names compare exactly: the insert fails";
    EXPECT_THAT(store.failures(), ElementsAre("NewScreenName -2147217873"));
    EXPECT_EQ(store.foreign().count(kUsers), 4U);
    // A password that needs encoding later is compared like with like, before and after.
    accounts.EncryptDBPasswords();
    EXPECT_TRUE(accounts.CheckScreenName_Password("dora", "it's"));
    EXPECT_FALSE(accounts.CheckScreenName_Password("dora", "it''s"));
}

TEST_F(AccountsTest, ChangesDetailsAndPasswordOfOneAccount)
{
    const qz::store::AccountDetails details{"e'", "f", "l", "p", "x", "h", "c", "w'"};
    EXPECT_TRUE(accounts.set_MyDetails("ANN", details, {}));
    EXPECT_EQ(store.foreign().rows(kUsers,
                  {"UserName", "Email", "FirstName", "LastName", "Phone", "Fax", "HomePage", "Country",
                      "Password"})[0],
        "ann|e'|f|l|p|x|h|c|w'");
    EXPECT_EQ(accounts.Retrieve_UserEmail("ann"), "e'") << "the directory was loaded again";
    EXPECT_FALSE(accounts.set_MyDetails("dora", details, {}));
    EXPECT_TRUE(accounts.set_ScreenNamePassword("ann", "new", {}));
    EXPECT_EQ(accounts.Retrieve_UserPassWord("ann"), "new");
    EXPECT_FALSE(accounts.set_ScreenNamePassword("dora", "new", {}));
    EXPECT_EQ(password_of("bert"), "other");
    EXPECT_EQ(store.foreign().count(kUsers), 3U);
    accounts.set_ScreenName_Enabled("bert", true);
    accounts.set_ScreenName_Enabled("ann", false);
    accounts.set_ScreenName_Enabled("dora", false);
    EXPECT_TRUE(accounts.ScreenName_Enabled("bert"));
    EXPECT_FALSE(accounts.ScreenName_Enabled("ann"));
    EXPECT_THAT(store.failures(), IsEmpty());
}

TEST_F(AccountsTest, AnOwnerChangesThePasswordAndLogsOnAnew)
{
    std::string message;
    EXPECT_FALSE(accounts.ChangeUserNamePassword("ann", "wrong", "new", "::1", message));
    EXPECT_EQ(message, "The password has been not changed!");
    EXPECT_FALSE(accounts.ChangeUserNamePassword("", "", "new", "::1", message));
    EXPECT_TRUE(accounts.ChangeUserNamePassword("ann", "secret", "n'w", "::1", message));
    EXPECT_EQ(message, "The password has been changed successfully, please relogon!");
    EXPECT_EQ(last_line(), "Password Changed for ann|ann|::1");
    EXPECT_EQ(accounts.Retrieve_UserPassWord("ann"), "secret") << "the directory still holds the old one";
    EXPECT_EQ(password_of("ann"), "n'w");
    EXPECT_TRUE(accounts.CheckScreenName_Password("ann", "n'w"));
    EXPECT_EQ(accounts.Retrieve_UserPassWord("ann"), "n'w");
}

TEST_F(AccountsTest, EncodesPlainPasswordsOnce)
{
    const auto foreign_mark = std::string(qz::helpers::SettingsCipher::Marker) + "garbage";
    store.foreign().add(kUsers, {{"UserName", "dora"}, {"Password", foreign_mark}});
    store.foreign().add(kUsers, {{"UserName", "emil"}}); // no password at all
    accounts.EncryptDBPasswords();
    const auto coded = password_of("ann");
    EXPECT_TRUE(coded.starts_with(qz::helpers::SettingsCipher::Marker));
    EXPECT_EQ(password_of("dora"), foreign_mark);
    EXPECT_EQ(password_of("emil"), "NULL");
    EXPECT_EQ(accounts.Retrieve_UserPassWord("ann"), "secret");
    EXPECT_TRUE(accounts.CheckScreenName_Password("bert", "other"));
    int edits = 0;
    store.watch = [&](const std::string& sql) {
        edits += sql == "EDIT" ? 1 : 0;
    };
    accounts.EncryptDBPasswords();
    EXPECT_EQ(edits, 0);
    EXPECT_EQ(password_of("ann"), coded);
    EXPECT_THAT(store.failures(), IsEmpty());
    // What this key did not make cannot be read; the label is one that hosts know.
    EXPECT_EQ(accounts.Retrieve_UserPassWord("dora"), "");
    EXPECT_FALSE(accounts.CheckScreenName_Password("dora", "garbage"));
    EXPECT_THAT(store.failures(),
        ElementsAre(
            testing::StartsWith("Retrieve_UserEmail "), testing::StartsWith("CheckScreenName_Password ")));
}

TEST_F(AccountsTest, GettersDifferInHowTheyCompare)
{
    using qz::store::Accounts;
    const struct {
        std::string (Accounts::*getter)(const std::string&) const;
        std::string exact, upper;
    } cases[] = {{&Accounts::Retrieve_UserEmail, "ann@example.org", "ann@example.org"},
        {&Accounts::Retrieve_UserFirstName, "Ann", "Ann"}, {&Accounts::Retrieve_UserLastName, "Arbor", ""},
        {&Accounts::Retrieve_UserPhone, "1", ""}, {&Accounts::Retrieve_UserFax, "2", ""},
        {&Accounts::Retrieve_UserHomePage, "3", ""}, {&Accounts::Retrieve_UserCountry, "4", ""}};
    for (const auto& each : cases) {
        EXPECT_EQ((accounts.*each.getter)("ann"), each.exact);
        EXPECT_EQ((accounts.*each.getter)("ANN"), each.upper);
        EXPECT_EQ((accounts.*each.getter)(""), "");
    }
    EXPECT_EQ(accounts.Retrieve_UserPassWord("ANN"), "");
    EXPECT_EQ(accounts.Retrieve_UserCreationTime("ann"), store.clock.now());
    EXPECT_TRUE(accounts.Retrieve_UserCreationTime("ANN").empty());
}

TEST_F(AccountsTest, ACardTakesTheNameAsItStands)
{
    const auto card = accounts.Retrieve_BuddyDetail("ANN");
    EXPECT_EQ(card.first_name + card.last_name + card.client_version + card.email, "AnnArborann@example.org");
    EXPECT_EQ(accounts.Retrieve_BuddyDetail("dora").email, "");
    EXPECT_THAT(store.failures(), IsEmpty());
    EXPECT_EQ(accounts.Retrieve_BuddyDetail("o'brien").email, "");
    EXPECT_THAT(store.failures(), ElementsAre("Retrieve_BuddyDetail -2147217900"));
}

TEST_F(AccountsTest, AFailureShowsNothingOfAPasswordWhereItIsAskedTo)
{
    std::string message;
    const std::function<void()> steps[] = {
        [&] { accounts.set_NewScreenName("dora", "", "", "", "open sesame"); },
        [&] {
            accounts.set_MyDetails("ann", {"", "", "", "", "", "", "", "open sesame"}, {});
        },
        [&] { accounts.set_ScreenNamePassword("ann", "open sesame", {}); },
        [&] { accounts.ChangeUserNamePassword("ann", "secret", "open sesame", {}, message); },
    };
    const char* description = "";
    store.watch = [&](const std::string& sql) {
        if (sql == "EDIT" || sql.starts_with("INSERT INTO users")) {
            throw qz::database_error(qz::DatabaseError::Constraint, description);
        }
    };
    for (const auto& step : steps) {
        for (const auto* shown : {"Truncated value: 'open ses'.", "no space left"}) {
            for (const auto* safeguard : {"False", "True"}) {
                store.ini.WriteIniValue("Safeguards", "HidePasswords", safeguard);
                description = shown;
                step();
                const auto& failure = store.journal.failures.back();
                EXPECT_EQ(failure.number, qz::number_of(qz::DatabaseError::Constraint));
                const bool hidden = std::string(safeguard) == "True" && description[0] == 'T';
                EXPECT_EQ(failure.description == shown, !hidden) << failure.routine << failure.description;
            }
        }
    }
    EXPECT_EQ(store.journal.failures.size(), 16U);
}

TEST_F(AccountsTest, ReportsUnderTheNamesOfTheInterface)
{
    store.database.ClosedbConnection();
    std::string message;
    accounts.set_MyDetails("ann", {}, "::1");
    EXPECT_EQ(store.journal.failures.back().address, "::1");
    accounts.set_ScreenNamePassword("ann", "", {});
    accounts.set_ScreenName_Enabled("ann", true);
    accounts.EncryptDBPasswords();
    accounts.Retrieve_BuddyDetail("ann");
    EXPECT_THAT(store.failures(),
        ElementsAre("set_MyDetails 3709", "set_ScreenNamePassword 3709", "Set_ScreenName_Enabled 3709",
            "EncryptDBPasswords 3709", "Retrieve_BuddyDetail 3709"));
    EXPECT_TRUE(accounts.ScreenNameExist("ann")) << "the copy in memory stays";
    EXPECT_FALSE(accounts.ChangeUserNamePassword("ann", "secret", "new", {}, message));
    EXPECT_FALSE(accounts.set_NewScreenName("dora", "", "", "", ""));
    EXPECT_THAT(store.failures(), testing::Contains("NewScreenName 3704"));
}
