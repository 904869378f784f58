// The settings and the database of a home, opened for one command: without the engine, so that nothing is
// logged.
#pragma once

#include "Home.h"
#include "base/Journal.h"
#include "config/Deployment.h"
#include "config/IniFile.h"
#include "config/KeyFile.h"
#include "config/Settings.h"
#include "helpers/MessageParser.h"
#include "helpers/SettingsCipher.h"
#include "platform/asio/AsioMachine.h"
#include "store/Accounts.h"
#include "store/ActivityLog.h"
#include "store/Counters.h"
#include "store/Database.h"
#include "store/Directory.h"

#include <optional>

namespace velto {

/// Keeps the first failure that a room reports, for the command to end with.
class CommandJournal final : public qz::Journal {
public:
    void Log(const std::string& /*message*/, const std::string& /*user_name*/,
        const std::string& /*remote_ip*/) override
    {
    }
    void log_own(const std::string& /*message*/) override { }
    void ReportError(
        std::string_view routine, const qz::EngineError& error, const std::string& address) override;
    void raise_error(
        std::string_view routine, const qz::EngineError& error, const std::string& address) override;

    /// @throws CommandError 1 when there was a failure.
    void require_success() const;

private:
    std::optional<std::string> failure_;
};

/// Read: the command changes nothing in the home, whatever it calls.
using Access = qz::config::IniFile::Access;

struct HomeSettings {
    /// Never makes a key.
    explicit HomeSettings(const Home& home, Access access = Access::ReadWrite);

    /// What the entry says; nothing when it cannot be decoded.
    std::optional<std::string> plain_value(const qz::config::SettingRow& row);
    /// A key that opens none of the enciphered settings is the wrong one; where it opens some, the others
    /// are.
    bool has_right_key();
    /// Names the key file when it is missing, damaged, unreadable or not the one of the settings.
    std::optional<std::string> complaint_about_key();
    /// @throws CommandError 78 when there is a complaint about the key.
    void require_right_key();

    qz::platform::AsioMachine machine;
    CommandJournal journal;
    qz::config::IniFile ini;
    qz::config::KeyFile key;
    qz::helpers::SettingsCipher cipher;
    qz::config::Settings settings;
    qz::config::Deployment deployment;
};

struct HomeStore : HomeSettings {
    /// Opens the database. ReadWrite makes it when it is not there yet, and brings it to this program's
    /// schema.
    /// @throws CommandError 78 when there is no key or the wrong one, 1 when the database cannot be opened.
    explicit HomeStore(const Home& home, Access access = Access::ReadWrite);

    /// Makes what the command changed last: without it the changes go with the connection.
    /// @throws CommandError 1 when that fails, or a room reported a failure before.
    void commit();
    qz::helpers::MessageParser parser;
    qz::store::Database database;
    qz::store::ActivityLog log;
};

struct HomeDirectory : HomeStore {
    /// Loads the accounts and the rooms.
    explicit HomeDirectory(const Home& home, Access access = Access::ReadWrite);

    qz::store::Counters counters{database, journal};
    qz::store::Directory directory{database, counters, journal};
    qz::store::Accounts accounts{database, directory, parser, cipher, journal};
};

/// For commands that encode passwords: two keys in one table would lock half of the users out. Changes
/// nothing in the home, where the opening for a change may already encode defaults.
/// @throws CommandError 78 when those that are stored were encoded with another key.
void require_key_of_passwords(const Home& home);

} // namespace velto
