#include "store/Accounts.h"

#include "base/Guarded.h"
#include "base/Secrets.h"
#include "base/Text.h"
#include "store/Statements.h"

#include <utility>

namespace qz::store {

Accounts::Accounts(Database& database, Directory& directory, const helpers::MessageParser& parser,
    helpers::SettingsCipher& cipher, Journal& journal)
    : database_(database), directory_(directory), parser_(parser), cipher_(cipher), journal_(journal)
{
}

bool Accounts::ScreenNameExist(const std::string& name, const std::string& remote_ip)
{
    return guarded(journal_, "ScreenNameExist", remote_ip, false, [&] {
        if (name.empty()) {
            return false;
        }
        directory_.SetUsers();
        return directory_.user_named(parser_.CleanText(name)) != nullptr;
    });
}

bool Accounts::CheckScreenName_Password(
    const std::string& name, const std::string& password, const std::string& remote_ip)
{
    return guarded(journal_, "CheckScreenName_Password", remote_ip, false, [&] {
        directory_.SetUsers();
        const auto* user = directory_.user_named(lower(parser_.CleanText(name)));
        // Cleaned on both sides, so that a password with a quote compares like with like.
        return user != nullptr
            && parser_.CleanText(cipher_.Decode(user->Password)) == parser_.CleanText(password);
    });
}

bool Accounts::ScreenName_Enabled(const std::string& name)
{
    return guarded(journal_, "ScreenName_Enabled", no_address, false, [&] {
        directory_.load_users_once();
        return is_enabled(name);
    });
}

bool Accounts::is_enabled(const std::string& name) const
{
    const auto* user = directory_.user_named(parser_.CleanText(name));
    return user != nullptr && user->AccountActive;
}

std::string Accounts::stored_password(const std::string& name) const
{
    const auto* user = directory_.user_named(lower(parser_.CleanText(name)));
    return user == nullptr ? std::string{} : user->Password;
}

bool Accounts::set_NewScreenName(const std::string& name, const std::string& email,
    const std::string& first_name, const std::string& last_name, const std::string& password)
{
    return guarded(journal_, "NewScreenName", no_address, false, [&] {
        if (trim(name).empty() || ScreenNameExist(name)) {
            return false;
        }
        const auto stored_name = lower(parser_.CleanText(name));
        const auto insert = [&] {
            database_.run(statements::kInsertUser, Quoted{stored_name}, Quoted{parser_.CleanText(password)},
                Quoted{parser_.CleanText(first_name)}, Quoted{parser_.CleanText(last_name)},
                Quoted{parser_.CleanText(email)});
        };
        store_password(password, [&] { directory_.add_user(stored_name, insert); });
        journal_.log_own("Addded new screenname (" + name + ")");
        return true;
    });
}

bool Accounts::set_MyDetails(
    const std::string& name, const AccountDetails& details, const std::string& remote_ip)
{
    return guarded(journal_, "set_MyDetails", remote_ip, false, [&] {
        const auto rows = row_of(statements::kSelectUserForDetails, name);
        if (rows.empty()) {
            return false;
        }
        const platform::RowChange change{
            {"Password", "FirstName", "LastName", "Email", "Phone", "Fax", "HomePage", "Country"},
            {details.Password, details.FirstName, details.LastName, details.Email, details.Phone, details.Fax,
                details.HomePage, details.Country}};
        store_password(details.Password, [&] { update(name, rows, change); });
        directory_.SetUsers();
        return true;
    });
}

bool Accounts::set_ScreenNamePassword(
    const std::string& name, const std::string& password, const std::string& remote_ip)
{
    return guarded(journal_, "set_ScreenNamePassword", remote_ip, false, [&] {
        const auto rows = row_of(statements::kSelectPasswordForSetting, name);
        if (rows.empty()) {
            return false;
        }
        store_password(password, [&] { update(name, rows, {{"Password"}, {password}}); });
        directory_.SetUsers();
        return true;
    });
}

bool Accounts::ChangeUserNamePassword(const std::string& name, const std::string& old_password,
    const std::string& new_password, const std::string& remote_ip, std::string& service_message)
{
    service_message = "The password has been not changed!";
    return guarded(journal_, "ChangeUserNamePassword", remote_ip, false, [&] {
        if (!CheckScreenName_Password(name, old_password, remote_ip)) {
            return false;
        }
        const auto rows = row_of(statements::kSelectPassword, name);
        if (!rows.empty()) {
            store_password(new_password, [&] { update(name, rows, {{"Password"}, {new_password}}); });
        }
        journal_.Log("Password Changed for " + name, name, remote_ip);
        service_message = "The password has been changed successfully, please relogon!";
        return true;
    });
}

void Accounts::set_ScreenName_Enabled(const std::string& name, bool enabled)
{
    guarded(journal_, "Set_ScreenName_Enabled", no_address, [&] {
        const auto rows = row_of(statements::kSelectUser, name);
        if (!rows.empty()) {
            update(name, rows, {{"AccountActive"}, {enabled}});
        }
        directory_.SetUsers();
        directory_.ListAllUsers();
    });
}

bool Accounts::save_client_version(
    const std::string& name, const std::string& version, const std::string& remote_ip)
{
    return guarded(journal_, "CheckScreenName_Password", remote_ip, false, [&] {
        const auto rows = row_of(statements::kSelectClientInUse, name);
        if (rows.empty()) {
            return false;
        }
        update(name, rows, {{"IMClientInUse"}, {version}});
        return true;
    });
}

void Accounts::EncryptDBPasswords()
{
    guarded(journal_, "EncryptDBPasswords", no_address, [&] {
        const std::string marker(helpers::SettingsCipher::Marker);
        const auto length = static_cast<std::int64_t>(character_count(marker));
        for (const auto& row : database_.query(statements::kSelectPlainPasswords, length, marker)) {
            database_.update(
                tables::kUsers, row.key(), {{"Password"}, {cipher_.Encode(row["Password"].text())}});
        }
        directory_.SetUsers();
    });
}

std::string Accounts::Retrieve_UserEmail(const std::string& name) const
{
    directory_.load_users_once();
    const auto* user = directory_.user_named_in_any_case(name);
    return user == nullptr ? std::string{} : user->Email;
}

std::string Accounts::Retrieve_UserFirstName(const std::string& name) const
{
    directory_.load_users_once();
    const auto* user = directory_.user_named_in_any_case(name);
    return user == nullptr ? std::string{} : user->FirstName;
}

std::string Accounts::Retrieve_UserLastName(const std::string& name) const
{
    return field(name, &UserRecord::LastName);
}

std::string Accounts::Retrieve_UserPhone(const std::string& name) const
{
    return field(name, &UserRecord::Phone);
}

std::string Accounts::Retrieve_UserFax(const std::string& name) const
{
    return field(name, &UserRecord::Fax);
}

std::string Accounts::Retrieve_UserHomePage(const std::string& name) const
{
    return field(name, &UserRecord::HomePage);
}

std::string Accounts::Retrieve_UserCountry(const std::string& name) const
{
    return field(name, &UserRecord::Country);
}

std::string Accounts::Retrieve_UserPassWord(const std::string& name)
{
    return guarded(journal_, "Retrieve_UserEmail", no_address, std::string{},
        [&] { return cipher_.Decode(field(name, &UserRecord::Password)); });
}

DateTime Accounts::Retrieve_UserCreationTime(const std::string& name) const
{
    directory_.load_users_once();
    const auto* user = directory_.user_named(name);
    return user == nullptr ? DateTime{} : user->CreationTime;
}

BuddyCard Accounts::Retrieve_BuddyDetail(const std::string& buddy)
{
    return guarded(journal_, "Retrieve_BuddyDetail", no_address, BuddyCard{}, [&] {
        const auto rows = database_.query(statements::kSelectUser, Quoted{buddy});
        if (rows.empty()) {
            return BuddyCard{};
        }
        const auto row = rows.front();
        return BuddyCard{row["FirstName"].text(), row["LastName"].text(), row["IMClientInUse"].text(),
            row["Email"].text()};
    });
}

template <typename Step> void Accounts::store_password(const std::string& password, Step&& step)
{
    try {
        std::forward<Step>(step)();
    } catch (...) { // only to be thrown on with another description
        const auto error = current_error();
        throw database_.hides_passwords() ? without_password(error, password) : error;
    }
}

Rows Accounts::row_of(const platform::Statement& statement, const std::string& name)
{
    return database_.query(statement, Quoted{parser_.CleanText(name)});
}

void Accounts::update(const std::string& name, const Rows& rows, const platform::RowChange& change)
{
    directory_.change_user(
        parser_.CleanText(name), [&] { database_.update(tables::kUsers, rows.front().key(), change); });
}

std::string Accounts::field(std::string_view name, std::string UserRecord::*member) const
{
    directory_.load_users_once();
    const auto* user = directory_.user_named(name);
    return user == nullptr ? std::string{} : user->*member;
}

} // namespace qz::store
