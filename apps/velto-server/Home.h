// The home folder of one server: settings, key, database, logs.
#pragma once

#include "server/HomeFiles.h"

#include <filesystem>
#include <string>

namespace velto {

class Home {
public:
    /// @param option  what --home says; when empty, $VELTO_HOME, else the current folder.
    explicit Home(const std::string& option);

    const std::filesystem::path& folder() const { return folder_; }
    std::filesystem::path settings_file() const { return folder_ / qz::server::kSettingsFile; }
    std::filesystem::path key_file() const { return folder_ / qz::server::kKeyFile; }
    bool is_initialised() const;

    /// The command that makes this home, for messages.
    std::string init_command() const;

    /// @throws CommandError 78 when the folder is missing.
    void require_present() const;
    /// @throws CommandError 78 also when it cannot be written.
    void require_folder() const;
    /// @throws CommandError 78 also when the settings file is missing, empty, no text, or cannot be read.
    void require_initialised() const;
    /// @throws CommandError 78 when there is no key: only init makes one.
    void require_key() const;

private:
    void require_text(const std::string& settings) const;

    std::filesystem::path folder_;
};

} // namespace velto
