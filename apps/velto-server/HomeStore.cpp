#include "HomeStore.h"

#include "base/EngineError.h"
#include "base/Guarded.h"
#include "base/Text.h"
#include "common/Exit.h"
#include "config/SettingTable.h"
#include "server/HomeFiles.h"
#include "store/Overrides.h"

namespace velto {

void CommandJournal::ReportError(
    std::string_view /*routine*/, const qz::EngineError& error, const std::string& /*address*/)
{
    failure_ = failure_.value_or(error.description());
}

void CommandJournal::raise_error(
    std::string_view routine, const qz::EngineError& error, const std::string& address)
{
    ReportError(routine, error, address);
}

void CommandJournal::require_success() const
{
    if (failure_) {
        throw CommandError(Exit::Failed, qz::printable(*failure_));
    }
}

HomeSettings::HomeSettings(const Home& home, Access access)
    : machine(home.folder()), ini(home.settings_file(), access),
      key(home.key_file(), machine.crypto(), [&home] { home.require_key(); }), cipher(machine.crypto(), key),
      settings(ini, cipher, journal), deployment(ini)
{
}

std::optional<std::string> HomeSettings::plain_value(const qz::config::SettingRow& row)
{
    auto value = ini.ReadIniValue(row.section, row.key);
    if (!row.encoded) {
        return value;
    }
    std::optional<std::string> plain;
    qz::attempt([&] { plain = cipher.Decode(value); });
    return plain;
}

bool HomeSettings::has_right_key()
{
    int opened = 0;
    int closed = 0;
    for (const auto& row : qz::config::setting_table()) {
        const auto value = ini.ReadIniValue(row.section, row.key);
        if (row.encoded && value.starts_with(qz::helpers::SettingsCipher::Marker)) {
            ++(plain_value(row) ? opened : closed);
        }
    }
    return closed == 0 || opened > 0;
}

std::optional<std::string> HomeSettings::complaint_about_key()
{
    const auto file = "the key file " + key.path().string();
    std::error_code ignored;
    if (!std::filesystem::exists(key.path(), ignored)) {
        return file + " is missing: stored passwords and enciphered settings cannot be read without it";
    }
    try {
        key.existing_key();
    } catch (const qz::EngineError& error) {
        return "the key file cannot be used: " + error.description();
    }
    return has_right_key()
        ? std::nullopt
        : std::optional(file + " is the wrong one: the enciphered settings were not encoded with it");
}

void HomeSettings::require_right_key()
{
    if (const auto complaint = complaint_about_key()) {
        throw CommandError(Exit::Configuration, *complaint + "\nPut the right one back from a backup.");
    }
}

HomeStore::HomeStore(const Home& home, Access access)
    : HomeSettings(home, access), parser(machine.crypto()),
      database(
          [this, access] {
              using qz::platform::DatabaseAccess;
              return machine.create_connection({deployment.provider(), deployment.durability(),
                  machine.home() / qz::server::kDatabaseFile, qz::store::all_overrides(),
                  access == Access::Read ? DatabaseAccess::Read : DatabaseAccess::ReadWrite});
          },
          settings, deployment, journal),
      log(database, settings, parser, journal)
{
    home.require_key();
    require_right_key();
    database.BuildConnectionString();
    journal.require_success();
}

void HomeStore::commit()
{
    database.turn_ended();
    journal.require_success();
}

HomeDirectory::HomeDirectory(const Home& home, Access access) : HomeStore(home, access)
{
    directory.SetUsers();
    directory.SetRooms();
    journal.require_success();
}

void require_key_of_passwords(const Home& home)
{
    std::error_code ignored;
    if (HomeSettings(home, Access::Read).deployment.provider() == qz::platform::Provider::Embedded
        && !std::filesystem::exists(home.folder() / qz::server::kDatabaseFile, ignored)) {
        return;
    }
    HomeStore store(home, Access::Read);
    const auto password = store.database.an_encoded_password();
    if (password && !qz::attempt([&] { store.cipher.Decode(*password); })) {
        throw CommandError(Exit::Configuration,
            "the key file " + home.key_file().string()
                + " is the wrong one: the stored passwords were not encoded with it\nPut the right one back "
                  "from a backup.");
    }
}

} // namespace velto
