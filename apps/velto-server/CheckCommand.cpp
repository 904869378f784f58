#include "CheckCommand.h"

#include "FileLimit.h"
#include "HomeLock.h"
#include "HomeStore.h"
#include "base/EngineError.h"
#include "base/Guarded.h"
#include "base/Text.h"
#include "server/HomeFiles.h"

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <unistd.h>

namespace velto {

namespace fs = std::filesystem;

namespace {

constexpr auto kError = Findings::Weight::Error;
constexpr auto kWarning = Findings::Weight::Warning;
constexpr std::uintmax_t kLittleSpace = 100'000'000; // bytes

const qz::config::SettingRow& row_of(std::string_view section, std::string_view key)
{
    return *qz::config::find_setting(section, key);
}

bool is_there(const fs::path& file)
{
    std::error_code ignored;
    return fs::exists(file, ignored);
}

/// Why the key cannot be read from its file.
std::optional<std::string> damage_of(qz::config::KeyFile& key)
{
    try {
        key.existing_key();
    } catch (const qz::EngineError& error) {
        return error.description();
    }
    return std::nullopt;
}

void check_key(HomeSettings& home, Findings& findings)
{
    const auto& file = home.key.path();
    if (!is_there(file)) {
        findings.add(kError, file,
            "the key is missing: stored passwords and enciphered settings cannot be read without it; put it "
            "back from a backup");
    } else if (access(file.c_str(), R_OK) != 0) {
        findings.add(kError, file,
            "cannot be read by this user, and without it no secret can; give it to the user who runs the "
            "server");
    } else if (const auto damage = damage_of(home.key)) {
        findings.add(kError, file, *damage);
    } else if (!home.has_right_key()) {
        findings.add(kError, file,
            "the enciphered settings were not encoded with this key; put the right one back from a backup");
    }
    if (home.key.is_readable_by_others()) {
        findings.add(kWarning, file,
            "others on this machine can read the key, and with it every stored password; chmod 600 it");
    }
}

/// A safeguard without an entry is off, as in a home that knows only the engine's own settings. After a
/// mistake with the file nobody may have meant that.
void check_safeguards(HomeSettings& home, Findings& findings)
{
    constexpr std::string_view kSafeguards = "Safeguards";
    std::string missing;
    for (const auto& row : qz::config::setting_table()) {
        if (row.section == kSafeguards && !row.init.empty()
            && home.ini.ReadIniValue(row.section, row.key).empty()) {
            missing.append(missing.empty() ? "" : ", ").append(row.key);
        }
    }
    if (!missing.empty()) {
        findings.add(kWarning, kSafeguards, {},
            "these have no entry, so they are off: " + missing + "; init of a new home writes them");
    }
}

void check_values(HomeSettings& home, Findings& findings)
{
    const bool right_key = is_there(home.key.path()) && home.has_right_key();
    for (const auto& row : qz::config::setting_table()) {
        const auto value = home.plain_value(row);
        if (!value) {
            if (right_key) { // else it is said once, of the key
                findings.add(kError, row,
                    "was not encoded with this server's key; write it anew with: velto-server config set");
            }
            continue;
        }
        if (const auto complaint = qz::config::complaint_about(row, *value)) {
            findings.add(kError, row, *complaint);
        }
        if (!row.served && !value->empty()) {
            findings.add(kWarning, row, "this server knows the setting but does not act on it yet");
        }
    }
    for (const auto& fault : qz::config::faults_in(home.ini.document())) {
        findings.add(fault);
    }
    check_safeguards(home, findings);
}

void check_administrator(HomeSettings& home, Findings& findings)
{
    const auto& row = row_of("General SetUp", "get_WebAdministratorPassword");
    if (home.ini.ReadIniValue(row.section, row.key).empty()) {
        findings.add(kWarning, row,
            "the default administrator password is in force; set your own with: velto-server config set "
            "\"General SetUp/get_WebAdministratorPassword\"");
    }
}

/// A file that strangers on this machine may read or change.
void check_permissions(Findings& findings, const fs::path& file, fs::perms too_much, const std::string& what)
{
    std::error_code error;
    const auto status = fs::status(file, error);
    if (fs::exists(status) && (status.permissions() & too_much) != fs::perms::none) {
        findings.add(kWarning, file, what);
    }
}

void check_files(HomeSettings& home, const Home& place, Findings& findings)
{
    check_key(home, findings);
    check_permissions(findings, place.settings_file(), fs::perms::others_read | fs::perms::others_write,
        "others on this machine can read the administrator's password in it; chmod 640 it");
    check_permissions(findings, place.folder() / qz::server::kDatabaseFile,
        fs::perms::others_read | fs::perms::others_write,
        "others on this machine can read every account and message; chmod 640 it");
    check_permissions(findings, place.folder(), fs::perms::others_write,
        "others on this machine can replace every file in it; chmod o-w it");
    check_permissions(findings, place.folder(), fs::perms::others_read,
        "others on this machine can lock it, and so delay what is written into the settings file; chmod "
        "o-rwx "
        "it");
    std::error_code error;
    const auto space = fs::space(place.folder(), error);
    if (!error && space.available < kLittleSpace) {
        findings.add(kWarning, place.folder(),
            "only " + std::to_string(space.available / 1'000'000)
                + " MB are free on its disk; what cannot be stored is lost");
    }
}

void check_readable(HomeSettings& home, Findings& findings, std::string_view key)
{
    const auto& row = row_of("Transport", key);
    const auto file = home.ini.ReadIniValue(row.section, row.key);
    if (!file.empty() && access(file.c_str(), R_OK) != 0) {
        findings.add(kError, row, "the file " + file + " cannot be read by this user");
    }
}

/// A server that runs on the home has its port for itself.
void check_port(HomeSettings& home, const Home& place, Findings& findings)
{
    if (HomeLock::holder(place)) {
        return;
    }
    class NoRequests final : public qz::platform::ServerSocketEvents {
        void connection_requested(std::int32_t /*request*/) override { }
    } nobody;
    try {
        const auto socket = home.machine.create_server_socket(nobody);
        socket->set_local_address(home.deployment.listen_address());
        socket->set_local_port(home.settings.get_ListeningPort());
        socket->listen();
    } catch (const qz::EngineError& error) {
        findings.add(kError, row_of("General SetUp", "ListeningPort"),
            error.description()
                + "; end the program that has it, or choose another: velto-server config set \"General "
                  "SetUp/ListeningPort\" PORT (and [Transport] ListenAddress must be one of this machine's)");
    }
}

/// Two listeners cannot share a port.
void check_ports_differ(HomeSettings& home, Findings& findings)
{
    const auto port = home.settings.get_ListeningPort();
    const auto tls = home.deployment.tls_port();
    const auto web = home.deployment.web_port();
    const auto taken = [&](std::string_view key) {
        findings.add(
            kError, row_of("Transport", key), "is the port of another listener; choose one of its own");
    };
    if (tls && *tls == port) {
        taken("TLSPort");
    }
    if (web && *web != 0 && (*web == port || web == tls)) {
        taken("WebPort");
    }
}

/// Every connection is an open file.
void check_limits(HomeSettings& home, Findings& findings)
{
    const auto files = files_for(home.deployment.max_connections());
    if (const auto limit = raise_file_limit(files)) {
        findings.add(kWarning, row_of("Transport", "MaxConnections"),
            std::to_string(files) + " open files are needed, but this process may have only "
                + std::to_string(*limit)
                + "; raise its limit (ulimit -n, LimitNOFILE= of the service), or lower the setting");
    }
}

void check_accounts(HomeDirectory& store, Findings& findings)
{
    const auto& row = row_of("General SetUp", "AdminScreenName");
    const auto name = store.ini.ReadIniValue(row.section, row.key);
    if (!name.empty() && store.directory.user_named_in_any_case(name) == nullptr) {
        findings.add(kWarning, row,
            "there is no account \"" + name
                + "\", so mails have no sender; add it with: velto-server user add");
    }
}

/// Messages go to the name in lower case.
void check_rooms(HomeDirectory& store, const fs::path& where, Findings& findings)
{
    for (const auto& room : store.directory.rooms()) {
        if (qz::lower(room.RoomName) != room.RoomName) {
            findings.add(kWarning, where,
                "no message reaches the room \"" + qz::printable(room.RoomName)
                    + "\", for its name has capitals; delete it with velto-server room delete, and add it "
                      "anew");
        }
    }
}

/// One password stands for all: they are encoded with the same key.
void check_secrets(HomeStore& store, Findings& findings)
{
    const auto password = store.database.an_encoded_password();
    if (!password) {
        return;
    }
    try {
        store.cipher.Decode(*password);
    } catch (const qz::EngineError&) {
        findings.add(kError, store.key.path(),
            "the stored passwords were not encoded with this key, so nobody can log on; put the right one "
            "back from a backup");
    }
}

void check_schema(HomeStore& store, Findings& findings, const fs::path& where)
{
    auto& tables = store.database.maintenance();
    const auto version = tables.schema_version();
    if (version < tables.current_schema_version()) {
        findings.add(kWarning, where,
            "the database has schema version " + std::to_string(version) + "; a start brings it to "
                + std::to_string(tables.current_schema_version())
                + ", which older programs refuse: take a backup before");
    }
}

void look_over(HomeSettings& settings, const Home& home, Findings& findings)
{
    check_values(settings, findings);
    check_administrator(settings, findings);
    check_files(settings, home, findings);
    check_readable(settings, findings, "TLSCertificate");
    check_readable(settings, findings, "TLSKey");
    check_ports_differ(settings, findings);
    check_limits(settings, findings);
}

void check_database(HomeSettings& home, const Home& place, Findings& findings)
{
    const auto file = place.folder() / qz::server::kDatabaseFile;
    const bool embedded = home.deployment.provider() == qz::platform::Provider::Embedded;
    if (embedded && !is_there(file)) {
        findings.add(kWarning, file,
            "there is no database; a start makes an empty one. Is a backup to be restored first?");
        return;
    }
    const auto where = embedded ? file : place.folder();
    try {
        HomeDirectory store(place, Access::Read);
        if (store.database.ConnectionTest() != qz::store::Database::get_ConnectionOK()) {
            findings.add(kError, where, "the database does not answer");
            return;
        }
        check_accounts(store, findings);
        check_rooms(store, where, findings);
        check_secrets(store, findings);
        check_schema(store, findings, where);
    } catch (const CommandError& failure) {
        findings.add(kError, where, failure.what());
    } catch (const qz::EngineError& failure) {
        findings.add(kError, where, failure.description());
    }
}

} // namespace

Findings look_over(const Home& home)
{
    Findings findings(home);
    HomeSettings settings(home, Access::Read);
    look_over(settings, home, findings);
    const bool has_database = settings.deployment.provider() != qz::platform::Provider::Embedded
        || is_there(home.folder() / qz::server::kDatabaseFile);
    const bool has_errors = findings.count(kError) > 0; // then the database is not touched at all
    if (!has_errors && settings.has_right_key() && has_database) {
        qz::attempt([&] { // a database that is away is another matter
            HomeStore store(home, Access::Read);
            check_secrets(store, findings);
        });
    }
    return findings;
}

Exit run_check(const Home& home, bool json)
{
    home.require_initialised();
    Findings findings(home);
    HomeSettings settings(home, Access::Read);
    look_over(settings, home, findings);
    check_port(settings, home, findings);
    if (is_there(home.key_file()) && settings.has_right_key()) {
        check_database(settings, home, findings);
    }
    return findings.conclude(json);
}

} // namespace velto
