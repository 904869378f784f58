#include "Home.h"

#include "base/EngineError.h"
#include "common/Exit.h"
#include "config/IniFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <unistd.h>

namespace velto {

namespace fs = std::filesystem;

namespace {

std::string folder_of(const std::string& option)
{
    if (!option.empty()) {
        return option;
    }
    const char* variable =
        std::getenv("VELTO_HOME"); // NOLINT(concurrency-mt-unsafe): read once, before any thread
    return variable != nullptr && *variable != '\0' ? variable : ".";
}

} // namespace

Home::Home(const std::string& option) : folder_(fs::absolute(folder_of(option)).lexically_normal())
{
    if (!folder_.has_filename() && folder_ != folder_.root_path()) {
        folder_ = folder_.parent_path(); // without the separator at the end
    }
}

bool Home::is_initialised() const
{
    std::error_code ignored;
    return fs::exists(settings_file(), ignored);
}

std::string Home::init_command() const
{
    return "velto-server init --home " + folder_.string();
}

void Home::require_present() const
{
    std::error_code ignored;
    if (!fs::is_directory(folder_, ignored)) {
        throw CommandError(Exit::Configuration,
            "there is no home folder " + folder_.string() + "\nMake one with: " + init_command()
                + "\nor name another with --home or VELTO_HOME.");
    }
}

void Home::require_folder() const
{
    require_present();
    if (access(folder_.c_str(), W_OK | X_OK) != 0) {
        throw CommandError(Exit::Configuration,
            "the home folder " + folder_.string()
                + " cannot be written by this user\nRun the command as the folder's owner, or change its "
                  "permissions.");
    }
}

void Home::require_initialised() const
{
    require_folder();
    if (!is_initialised()) {
        throw CommandError(Exit::Configuration,
            "there is no settings file " + settings_file().string() + "\nMake one with: " + init_command());
    }
    try {
        const qz::config::IniFile settings(settings_file());
        settings.require_readable();
        if (settings.entries().empty()) {
            throw CommandError(Exit::Configuration,
                "the settings file " + settings_file().string()
                    + " holds no settings\nPut it back from a backup; for a home that begins anew move it "
                      "away, "
                      "then: "
                    + init_command());
        }
        require_text(settings.document().bytes());
    } catch (const qz::EngineError& error) {
        throw CommandError(Exit::Configuration, error.description());
    }
}

/// What stands behind a NUL in its line is not read, whatever it says.
void Home::require_text(const std::string& settings) const
{
    const auto nul = settings.find('\0');
    if (nul != std::string::npos) {
        const auto line =
            1 + std::count(settings.begin(), settings.begin() + static_cast<std::ptrdiff_t>(nul), '\n');
        throw CommandError(Exit::Configuration,
            "the settings file " + settings_file().string() + " is damaged or no text: line "
                + std::to_string(line)
                + " holds a NUL byte\nMend that line, or put the file back from a backup.");
    }
}

void Home::require_key() const
{
    std::error_code ignored;
    if (!fs::exists(key_file(), ignored)) {
        throw CommandError(Exit::Configuration,
            "the key file " + key_file().string()
                + " is missing: stored passwords and enciphered settings cannot be read without it\nPut it "
                  "back "
                  "from a backup. For a home that begins anew, without accounts, move the settings file "
                  "away, "
                  "then: "
                + init_command());
    }
}

} // namespace velto
