#include "InitCommand.h"

#include "FileLimit.h"
#include "HomeStore.h"
#include "common/Exit.h"
#include "config/SettingTable.h"
#include "platform/sodium/SodiumCrypto.h"

#include <array>
#include <iostream>
#include <string>

namespace velto {

namespace {

void make_folder(const Home& home)
{
    std::error_code error;
    const bool made = std::filesystem::create_directories(home.folder(), error);
    if (made) {
        using std::filesystem::perms;
        std::filesystem::permissions(
            home.folder(), perms::owner_all | perms::group_read | perms::group_exec, error);
    }
    if (error) {
        throw CommandError(Exit::Configuration,
            "the home folder " + home.folder().string() + " cannot be made: " + error.message()
                + "\nChoose a place that this user may write, with --home DIR.");
    }
    home.require_folder();
    if (home.is_initialised()) {
        throw CommandError(Exit::Failed,
            home.settings_file().string()
                + " is there already; nothing was changed\nStart the server with: velto-server run --home "
                + home.folder().string());
    }
}

/// Before anything else, so that a home without a key is never one that was made here.
void make_key(const Home& home)
{
    qz::platform::SodiumCrypto crypto;
    qz::config::KeyFile(home.key_file(), crypto).key();
}

/// As many as the table says, or as many as this machine lets a process have.
std::string max_connections(std::string_view wanted)
{
    const auto row = qz::config::find_setting("Transport", "MaxConnections");
    const auto number = static_cast<std::int16_t>(qz::config::integer_value(*row, wanted).value_or(0));
    const auto limit = raise_file_limit(files_for(number));
    if (!limit) {
        return std::string(wanted);
    }
    const auto possible = std::to_string(connections_with(*limit));
    std::cout << "[Transport] MaxConnections is " << possible << ": a process of this user may have only "
              << *limit << " open files (ulimit -n)\n";
    return possible;
}

void write_settings(HomeSettings& settings)
{
    const bool written = settings.ini.edit([](qz::config::IniDocument& document) {
        for (const auto& row : qz::config::setting_table()) {
            if (row.served && !row.init.empty()) {
                document.write(row.section, row.key,
                    row.key == "MaxConnections" ? max_connections(row.init) : std::string(row.init));
            }
        }
    });
    if (!written) {
        throw CommandError(
            Exit::Failed, "the settings file cannot be written: " + settings.ini.path().string());
    }
}

std::string random_password(qz::helpers::Crypto& crypto)
{
    // No letters or digits that look alike.
    static constexpr std::string_view kLetters = "abcdefghijkmnpqrstuvwxyz23456789";
    std::string password;
    for (int i = 0; i < 12; ++i) {
        password += kLetters[crypto.random_below(kLetters.size())];
    }
    return password;
}

void add_demo_accounts(HomeDirectory& store)
{
    struct Person {
        const char* name;
        const char* first_name;
        const char* last_name;
    };
    static constexpr std::array<Person, 3> kPeople{
        {{"ada", "Ada", "Abel"}, {"ben", "Ben", "Berg"}, {"cleo", "Cleo", "Costa"}}};
    std::cout << "Accounts to try:\n";
    for (const auto& person : kPeople) {
        const auto password = random_password(store.machine.crypto());
        store.accounts.set_NewScreenName(person.name, std::string(person.name) + "@example.org",
            person.first_name, person.last_name, store.cipher.Encode(password));
        store.commit();
        std::cout << "  " << person.name << "  password " << password << "\n";
    }
}

} // namespace

void run_init(const Home& home, const InitOptions& options)
{
    make_folder(home);
    make_key(home);
    {
        HomeSettings settings(home);
        write_settings(settings);
    }
    HomeDirectory store(home);
    std::cout << "Home of the server: " << home.folder().string() << "\n";
    if (options.demo) {
        add_demo_accounts(store);
    }
    std::cout << "Start it with: velto-server run --home " << home.folder().string() << "\n";
}

} // namespace velto
