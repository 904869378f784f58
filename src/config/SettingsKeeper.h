// Looks after the settings file of a running server, and tells people what becomes of it.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Deployment.h"
#include "config/IniFile.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace qz::config {

/// Reports go to the journal from here, never from a reader of a setting: the journal reads settings itself.
class SettingsKeeper {
public:
    /// All must outlive the object.
    SettingsKeeper(IniFile& ini, const Deployment& deployment, const Clock& clock, Journal& journal);

    /// Called on every tick. Writes what waits to be written, and a file that is missing; reports, each
    /// cause once a minute while it lasts, that the file is not in force or that an entry is malformed; warns
    /// of each safeguard that an edit has switched off.
    void look();
    /// The server ends: waits a few seconds, if it must, to write what waits.
    void finish();

private:
    void write_waiting();
    void report_trouble();
    void review();
    void compare(const Deployment::Review& setting);
    bool is_due(const std::string& subject, const std::string& cause);
    void report(const std::string& description);

    IniFile& ini_;
    const Deployment& deployment_;
    const Clock& clock_;
    Journal& journal_;
    std::uint64_t generation_ = 0;
    std::map<const SettingRow*, bool> on_; // as of the last review
    // When each cause was last reported, by its subject; those of the last minute.
    std::map<std::pair<std::string, std::string>, std::chrono::steady_clock::time_point> reported_;
    std::optional<std::chrono::steady_clock::time_point> last_attempt_; // to write what waits
    bool in_trouble_ = false;                                           // and it was reported
    bool malformed_ = false;                                            // some entry is
};

} // namespace qz::config
