#include "CheckCommand.h"

#include "HomeStore.h"
#include "base/Text.h"
#include "config/SettingTable.h"

#include <iostream>
#include <string>
#include <unistd.h>

namespace velto {

namespace {

using qz::config::SettingRow;

class Findings {
public:
    explicit Findings(const Home& home) : home_(home) { }

    void error(const std::string& where, const std::string& what) { add("error", where, what, errors_); }
    void warning(const std::string& where, const std::string& what)
    {
        add("warning", where, what, warnings_);
    }
    void error(const SettingRow& row, const std::string& what) { error(place(row), what); }
    void warning(const SettingRow& row, const std::string& what) { warning(place(row), what); }

    Exit conclude() const
    {
        if (errors_ + warnings_ == 0) {
            std::cout << "ok: " << home_.folder().string() << "\n";
        } else {
            std::cout << errors_ << (errors_ == 1 ? " error, " : " errors, ") << warnings_
                      << (warnings_ == 1 ? " warning\n" : " warnings\n");
        }
        return errors_ > 0 ? Exit::Configuration : Exit::Done;
    }

    std::string place(std::string_view section, std::string_view key) const
    {
        return home_.settings_file().string() + " [" + std::string(section) + "] " + std::string(key);
    }

private:
    std::string place(const SettingRow& row) const { return place(row.section, row.key); }
    static void add(const char* kind, const std::string& where, const std::string& what, int& count)
    {
        std::cout << kind << ": " << qz::printable(where) << ": " << qz::printable(what) << "\n";
        ++count;
    }

    const Home& home_;
    int errors_ = 0;
    int warnings_ = 0;
};

void check_values(HomeSettings& home, Findings& findings)
{
    for (const auto& row : qz::config::setting_table()) {
        auto value = home.ini.ReadIniValue(row.section, row.key);
        if (row.encoded && !value.empty()) {
            try {
                value = home.cipher.Decode(value);
            } catch (const qz::EngineError& error) {
                findings.error(row, error.description() + "; write it anew with: velto-server config set");
                continue;
            }
        }
        if (const auto complaint = qz::config::complaint_about(row, value)) {
            findings.error(row, *complaint);
        }
        if (!row.served && !value.empty()) {
            findings.warning(row, "this server knows the setting but does not act on it yet");
        }
    }
    for (const auto& entry : qz::config::unknown_entries(home.ini)) {
        findings.warning(findings.place(entry.section, entry.key),
            "no such setting; look for a misspelling, or remove it");
    }
}

void check_administrator(HomeSettings& home, Findings& findings)
{
    const auto* row = qz::config::find_setting("General SetUp", "get_WebAdministratorPassword");
    if (home.ini.ReadIniValue(row->section, row->key).empty()) {
        findings.warning(*row,
            "the default administrator password is in force; set your own with: velto-server config set "
            "\"General SetUp/"
            "get_WebAdministratorPassword\"");
    }
    if (home.key.is_readable_by_others()) {
        findings.warning(home.key.path().string(),
            "others on this machine can read the key, and with it every stored password; chmod 600 it");
    }
}

void check_readable(HomeSettings& home, Findings& findings, std::string_view key)
{
    const auto* row = qz::config::find_setting("Transport", key);
    const auto file = home.ini.ReadIniValue(row->section, row->key);
    if (!file.empty() && access(file.c_str(), R_OK) != 0) {
        findings.error(*row, "the file " + file + " cannot be read by this user");
    }
}

void check_port(HomeSettings& home, Findings& findings)
{
    class NoRequests final : public qz::platform::ServerSocketEvents {
        void connection_requested(std::int32_t /*request*/) override { }
    } nobody;
    try {
        const auto socket = home.machine.create_server_socket(nobody);
        socket->set_local_address(home.deployment.listen_address());
        socket->set_local_port(home.settings.get_ListeningPort());
        socket->listen();
    } catch (const qz::EngineError& error) {
        findings.warning(*qz::config::find_setting("General SetUp", "ListeningPort"),
            error.description() + " (nothing to worry about when it is this very server that runs)");
    }
}

void check_database(const Home& home, Findings& findings)
{
    try {
        HomeStore store(home);
        if (store.database.ConnectionTest() != qz::store::Database::get_ConnectionOK()) {
            findings.error(home.folder().string(), "the database does not answer");
        }
    } catch (const CommandError& error) {
        findings.error(home.folder().string(), error.what());
    }
}

} // namespace

Exit run_check(const Home& home)
{
    home.require_initialised();
    Findings findings(home);
    HomeSettings settings(home);
    check_values(settings, findings);
    check_administrator(settings, findings);
    check_readable(settings, findings, "TLSCertificate");
    check_readable(settings, findings, "TLSKey");
    check_port(settings, findings);
    check_database(home, findings);
    return findings.conclude();
}

} // namespace velto
