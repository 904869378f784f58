// Accounts: creating, changing and checking them, and what is known of one account.
#pragma once

#include "base/DateTime.h"
#include "base/Journal.h"
#include "helpers/MessageParser.h"
#include "helpers/SettingsCipher.h"
#include "store/Database.h"
#include "store/Directory.h"

#include <string>
#include <string_view>

namespace qz::store {

/// Names and contact texts of an account, as its owner or the administrator gives them.
struct AccountDetails {
    std::string Email;
    std::string FirstName;
    std::string LastName;
    std::string Phone;
    std::string Fax;
    std::string HomePage;
    std::string Country;
    std::string Password; // plain; encoded at the next start
};

/// What a buddy's card shows of an account.
struct BuddyCard {
    std::string first_name;
    std::string last_name;
    std::string client_version;
    std::string email;
};

class Accounts {
public:
    Accounts(Database& database, Directory& directory, const helpers::MessageParser& parser,
        helpers::SettingsCipher& cipher, Journal& journal);

    // Checks. The first two reload the directory when it changed.
    bool ScreenNameExist(const std::string& name, const std::string& remote_ip = {});
    /// The lower-cased name's password is compared, case and all. False for an empty name.
    bool CheckScreenName_Password(
        const std::string& name, const std::string& password, const std::string& remote_ip = {});
    bool ScreenName_Enabled(const std::string& name);

    /// The same as ScreenName_Enabled, from the directory as it is.
    bool is_enabled(const std::string& name) const;
    /// The password with which the name logs on, as it is stored; empty when there is no such account.
    std::string stored_password(const std::string& name) const;

    /// Creates an account; the name is stored in lower case, the password as given.
    /// @return false when the name is blank or taken, or the insert fails.
    bool set_NewScreenName(const std::string& name, const std::string& email, const std::string& first_name,
        const std::string& last_name, const std::string& password);
    bool set_MyDetails(const std::string& name, const AccountDetails& details, const std::string& remote_ip);
    bool set_ScreenNamePassword(
        const std::string& name, const std::string& password, const std::string& remote_ip);
    /// The directory keeps the old password until its next load: the user is told to log on again.
    /// @param service_message  receives a sentence for the user.
    bool ChangeUserNamePassword(const std::string& name, const std::string& old_password,
        const std::string& new_password, const std::string& remote_ip, std::string& service_message);
    void set_ScreenName_Enabled(const std::string& name, bool enabled);
    /// Stores the client that the account last used. Errors are reported under "CheckScreenName_Password", a
    /// label that hosts know.
    /// @return false when there is no such account or the update fails.
    bool save_client_version(
        const std::string& name, const std::string& version, const std::string& remote_ip);
    /// Encodes every stored password that is still plain.
    void EncryptDBPasswords();

    // One account's fields from the directory as it is; the empty text when there is no such name.
    // E-mail and first name are found in any letter case, the others only exactly.
    std::string Retrieve_UserEmail(const std::string& name) const;
    std::string Retrieve_UserFirstName(const std::string& name) const;
    std::string Retrieve_UserLastName(const std::string& name) const;
    std::string Retrieve_UserPhone(const std::string& name) const;
    std::string Retrieve_UserFax(const std::string& name) const;
    std::string Retrieve_UserHomePage(const std::string& name) const;
    std::string Retrieve_UserCountry(const std::string& name) const;
    /// The plain password. Its errors are reported under "Retrieve_UserEmail", a label that hosts know.
    std::string Retrieve_UserPassWord(const std::string& name);
    DateTime Retrieve_UserCreationTime(const std::string& name) const;

    /// From the database; all empty when there is no such account. The name is used as it stands.
    BuddyCard Retrieve_BuddyDetail(const std::string& buddy);

private:
    /// Runs a step that stores a password; its failure shows nothing of it where HidePasswords is on.
    template <typename Step> void store_password(const std::string& password, Step&& step);
    Rows row_of(const platform::Statement& statement, const std::string& name);
    void update(const std::string& name, const Rows& rows, const platform::RowChange& change);
    std::string field(std::string_view name, std::string UserRecord::*member) const;

    Database& database_;
    Directory& directory_;
    const helpers::MessageParser& parser_;
    helpers::SettingsCipher& cipher_;
    Journal& journal_;
};

} // namespace qz::store
