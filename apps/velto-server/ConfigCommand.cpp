#include "ConfigCommand.h"

#include "HomeLock.h"
#include "HomeStore.h"
#include "StatusFile.h"
#include "base/Text.h"
#include "common/Console.h"
#include "common/Exit.h"
#include "config/SettingTable.h"
#include "config/SettingsFaults.h"
#include "platform/AtomicFile.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>

namespace velto {

namespace {

using qz::config::SettingRow;

constexpr std::string_view kMask = "********";
constexpr std::string_view kBlank = "***BLANK***"; // how an enciphered setting stores the empty text

std::string full_name(const SettingRow& row)
{
    return std::string(row.section) + "/" + std::string(row.key);
}

const SettingRow& require_setting(const std::string& name)
{
    const auto* row = qz::config::find_setting(name);
    if (row == nullptr) {
        throw CommandError(Exit::Usage,
            "there is no setting \"" + qz::printable(name)
                + "\"\nA setting is named Section/Key, for instance "
                + "\"General SetUp/ListeningPort\"; all of them: velto-server config list");
    }
    return *row;
}

std::string in_force_when_missing(const SettingRow& row)
{
    return "(" + (row.missing.empty() ? "not set" : std::string(row.missing)) + ")";
}

/// The value as people write it; empty when there is no entry.
std::string plain_value(HomeSettings& home, const SettingRow& row)
{
    auto stored = home.ini.ReadIniValue(row.section, row.key);
    if (!row.encoded || stored.empty()) {
        return stored;
    }
    if (stored.starts_with(qz::helpers::SettingsCipher::Marker)) {
        home.require_right_key();
    }
    const auto plain = home.cipher.Decode(stored);
    return plain == kBlank ? std::string() : plain;
}

std::string shown_value(HomeSettings& home, const SettingRow& row)
{
    const auto value = plain_value(home, row);
    return row.secret && !value.empty() ? std::string(kMask) : value;
}

void list_as_json(HomeSettings& settings)
{
    auto all = nlohmann::ordered_json::array();
    for (const auto& row : qz::config::setting_table()) {
        all.push_back({{"section", row.section}, {"key", row.key}, {"value", shown_value(settings, row)},
            {"missing", row.missing}, {"description", row.description}, {"served", row.served}});
    }
    print_json(all);
}

void list_for_people(HomeSettings& settings)
{
    std::string_view section;
    for (const auto& row : qz::config::setting_table()) {
        const auto value = shown_value(settings, row);
        if (row.section != section) {
            std::cout << (section.empty() ? "" : "\n") << "[" << row.section << "]\n";
            section = row.section;
        }
        std::cout << row.key << " = " << (value.empty() ? in_force_when_missing(row) : qz::printable(value))
                  << "\n    " << row.description << (row.served ? "\n" : " (not served yet)\n");
    }
}

/// Also about a value of which nothing is left when it is read.
std::optional<std::string> complaint_about(const SettingRow& row, const std::string& text)
{
    qz::config::IniDocument document;
    document.write(row.section, row.key, text);
    if (document.read(row.section, row.key).empty() && !row.encoded) {
        return qz::config::complaint_about_empty(row);
    }
    return qz::config::complaint_about(row, text);
}

/// Refuses to write an entry beside another line that is meant for the same setting: a running server takes
/// neither of them, and the next one would not start.
void require_one_entry(const HomeSettings& home, const SettingRow& row, const std::string& value)
{
    auto document = home.ini.document();
    document.write(row.section, row.key, value);
    if (const auto fault = qz::config::error_about(row, qz::config::faults_in(document))) {
        throw CommandError(Exit::Configuration,
            home.ini.path().string() + " [" + std::string(row.section) + "] " + std::string(row.key) + ": "
                + *fault + "\nMend the file first; nothing was written.");
    }
}

/// What is written into a file that the running server does not use would not count, and would make it look
/// as if it were whole. Waits until the server has looked at what somebody else has just changed.
void require_in_use(const Home& home)
{
    constexpr std::chrono::seconds kPatience(
        7); // stillness, and a sign of life that comes every five seconds
    constexpr std::chrono::milliseconds kPause(100);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        const auto process = HomeLock::holder(home);
        const auto settings = qz::platform::AtomicFile(home.settings_file()).read();
        const auto status = process ? StatusFile(home).read(*process) : std::nullopt;
        if (!settings || !status || status->is_silent() || settings->is_sealed()) {
            return;
        }
        const bool is_known = status->written > (std::max)(settings->stamp.changed, settings->stamp.modified);
        if (is_known && status->object.value("settings_in_force", true)) {
            return;
        }
        const auto trouble = status->object.value("settings_trouble", std::string());
        if ((is_known && !trouble.empty()) || std::chrono::steady_clock::now() > deadline) {
            throw CommandError(Exit::Configuration,
                "the running server does not use the settings file as it is: "
                    + (trouble.empty() ? "it keeps changing" : trouble)
                    + "\nNothing was written. Mend the file, or put it back from a backup.");
        }
        std::this_thread::sleep_for(kPause);
    }
}

} // namespace

void run_config_list(const Home& home, ListForm form)
{
    if (form == ListForm::Names) { // are those of the program: no home is needed
        for (const auto& row : qz::config::setting_table()) {
            std::cout << full_name(row) << "\n";
        }
        return;
    }
    home.require_initialised();
    HomeSettings settings(home, Access::Read);
    if (form == ListForm::Json) {
        list_as_json(settings);
    } else {
        list_for_people(settings);
    }
}

void run_config_get(const Home& home, const std::string& name)
{
    const auto& row = require_setting(name);
    home.require_initialised();
    HomeSettings settings(home, Access::Read);
    std::cout << qz::printable(shown_value(settings, row)) << "\n";
}

void run_config_set(const Home& home, const std::string& name, const std::optional<std::string>& value)
{
    const auto& row = require_setting(name);
    home.require_initialised();
    if (row.secret && value) {
        throw CommandError(Exit::Usage,
            full_name(row) + " is a secret: others on this machine can see the arguments of a command\n"
                + "Leave the value out and type it at the prompt, or pipe it in.");
    }
    if (!row.secret && !value) {
        throw CommandError(Exit::Usage, "no value given for " + full_name(row));
    }
    const auto text = value ? qz::valid_utf8(*value) : read_secret("New value of " + full_name(row) + ": ");
    if (const auto complaint = complaint_about(row, text)) {
        throw CommandError(Exit::Usage, full_name(row) + ": " + *complaint);
    }
    require_in_use(home);
    HomeSettings settings(home);
    if (row.encoded) {
        settings.require_right_key();
    } else if (const auto complaint = settings.complaint_about_key()) {
        warn(*complaint);
    }
    const auto stored =
        row.encoded ? settings.cipher.Encode(qz::trim(text).empty() ? kBlank : std::string_view(text)) : text;
    require_one_entry(settings, row, stored);
    if (!settings.ini.WriteIniValue(row.section, row.key, stored)) {
        throw CommandError(Exit::Failed,
            "the settings file cannot be written: " + home.settings_file().string()
                + "\nRun the command as the file's owner, and look for a full disk.");
    }
}

} // namespace velto
