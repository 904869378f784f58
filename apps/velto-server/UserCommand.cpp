#include "UserCommand.h"

#include "HomeStore.h"
#include "Names.h"
#include "base/Text.h"
#include "common/Console.h"
#include "common/Exit.h"

#include <iostream>
#include <nlohmann/json.hpp>

namespace velto {

namespace {

using Json = nlohmann::ordered_json;
using qz::store::UserRecord;

constexpr std::size_t kLongestPassword = 100; // characters

std::string take_password(const PasswordSource& source, const std::string& name)
{
    auto password = source.file.empty() ? read_new_secret("Password of " + qz::printable(name) + ": ",
                        source.standard_input ? Ask::Never : Ask::OnTerminal)
                                        : read_secret_file(source.file);
    if (password.empty()) {
        throw CommandError(Exit::Usage, "the password must not be empty");
    }
    if (qz::character_count(password) > kLongestPassword) {
        throw CommandError(Exit::Usage,
            "the password is too long: at most " + std::to_string(kLongestPassword) + " characters");
    }
    if (password.starts_with(qz::helpers::SettingsCipher::Marker)) {
        throw CommandError(Exit::Usage,
            "the password must not begin with " + std::string(qz::helpers::SettingsCipher::Marker)
                + ": that marks encoded ones");
    }
    return password;
}

/// The account of this name, letter case aside.
const UserRecord& require_user(const HomeDirectory& home, const std::string& name)
{
    const auto* user = home.directory.user_named_in_any_case(name);
    if (user == nullptr) {
        throw CommandError(Exit::Failed,
            "there is no account \"" + qz::printable(name) + "\"\nAll of them: velto-server user list --home "
                + home.machine.home().string());
    }
    return *user;
}

Json to_json(const UserRecord& user)
{
    return {{"name", user.UserName}, {"enabled", user.AccountActive}, {"first_name", user.FirstName},
        {"last_name", user.LastName}, {"email", user.Email}, {"phone", user.Phone}, {"fax", user.Fax},
        {"home_page", user.HomePage}, {"country", user.Country}, {"client", user.IMClientInUse},
        {"created", user.CreationTime.empty() ? "" : user.CreationTime.text()}};
}

} // namespace

void run_user_add(const Home& home, const NewUser& user, const PasswordSource& password)
{
    require_user_name(user.name);
    home.require_initialised();
    require_key_of_passwords(home);
    HomeDirectory store(home);
    if (store.directory.user_named_in_any_case(user.name) != nullptr) {
        throw CommandError(
            Exit::Failed, "the screen name \"" + qz::printable(user.name) + "\" is taken already");
    }
    const auto secret = take_password(password, user.name);
    const bool added = store.accounts.set_NewScreenName(user.name, qz::valid_utf8(user.email),
        qz::valid_utf8(user.first_name), qz::valid_utf8(user.last_name), store.cipher.Encode(secret));
    store.commit();
    if (!added) { // by another command in between
        throw CommandError(Exit::Failed, "the account was not added: its name is taken");
    }
    std::cout << "Account " << qz::printable(qz::lower(user.name)) << " added\n";
}

void run_user_list(const Home& home, ListForm form)
{
    home.require_initialised();
    const HomeDirectory store(home, Access::Read);
    Json all = Json::array();
    for (const auto& user : store.directory.users()) {
        if (user.UserName.empty()) {
            continue; // how the directory says that there are none
        }
        if (form == ListForm::Json) {
            all.push_back(to_json(user));
            continue;
        }
        if (form == ListForm::Names) {
            std::cout << qz::printable(user.UserName) << "\n";
            continue;
        }
        const auto name = std::string(qz::trim(user.FirstName + " " + user.LastName));
        std::cout << in_column(user.UserName, 20) << (user.AccountActive ? "enabled   " : "disabled  ")
                  << in_column(name, 24) << qz::printable(user.Email) << "\n";
    }
    if (form == ListForm::Json) {
        print_json(all);
    }
}

void run_user_show(const Home& home, const std::string& name, bool json)
{
    home.require_initialised();
    const HomeDirectory store(home, Access::Read);
    const auto fields = to_json(require_user(store, name));
    if (json) {
        print_json(fields);
        return;
    }
    for (const auto& [field, value] : fields.items()) {
        const auto text = value.is_boolean() ? (value.get<bool>() ? "yes" : "no") : value.get<std::string>();
        std::cout << in_column(field, 12) << qz::printable(text) << "\n";
    }
}

void run_user_password(const Home& home, const std::string& name, const PasswordSource& password)
{
    home.require_initialised();
    require_key_of_passwords(home);
    HomeDirectory store(home);
    const auto stored_name = require_user(store, name).UserName;
    const auto secret = take_password(password, stored_name);
    const bool changed = store.accounts.set_ScreenNamePassword(stored_name, store.cipher.Encode(secret), {});
    store.commit();
    if (!changed) { // deleted in between
        throw CommandError(Exit::Failed, "there is no account \"" + qz::printable(name) + "\" any more");
    }
    std::cout << "Password of " << qz::printable(stored_name) << " changed\n";
}

void run_user_enable(const Home& home, const std::string& name, bool enabled)
{
    home.require_initialised();
    HomeDirectory store(home);
    const auto stored_name = require_user(store, name).UserName;
    store.accounts.set_ScreenName_Enabled(stored_name, enabled);
    store.commit();
    std::cout << "Account " << qz::printable(stored_name) << (enabled ? " enabled\n" : " disabled\n");
}

} // namespace velto
