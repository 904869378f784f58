#include "config/SettingsKeeper.h"

#include "base/Guarded.h"
#include "base/Text.h"

namespace qz::config {

namespace {

using namespace std::chrono_literals;

constexpr auto kBetweenReports = 1min;
constexpr auto kBetweenAttempts = 1s;
constexpr std::size_t kMostReports = 200; // a minute; causes quote values, of which there is no end
constexpr const char* kFileSubject = "file";

std::string name_of(const SettingRow& row)
{
    return "[" + std::string(row.section) + "] " + std::string(row.key);
}

} // namespace

SettingsKeeper::SettingsKeeper(
    IniFile& ini, const Deployment& deployment, const Clock& clock, Journal& journal)
    : ini_(ini), deployment_(deployment), clock_(clock), journal_(journal)
{
    for (const auto& setting : deployment_.review()) {
        on_[setting.row] = setting.is_on;
    }
}

void SettingsKeeper::look()
{
    const auto generation = ini_.generation(); // a look at the file
    report_trouble();
    write_waiting();
    if (generation != generation_ || malformed_) {
        generation_ = generation;
        review();
    }
}

void SettingsKeeper::finish()
{
    if (!ini_.write_waiting(IniFile::Patience::Some)) {
        report("settings that were changed could not be written");
    }
}

void SettingsKeeper::write_waiting()
{
    const auto now = clock_.steady();
    if (!last_attempt_ || now - *last_attempt_ >= kBetweenAttempts) {
        last_attempt_ = now;
        if (ini_.restore_missing()) {
            in_trouble_ = false;
            journal_.warn_own(
                "The settings file was missing; it is written again, with the settings in force: "
                + ini_.path().string());
        }
        ini_.write_waiting();
    }
}

/// A file is away or empty for a moment while an editor saves it: that is no trouble yet.
void SettingsKeeper::report_trouble()
{
    const auto& trouble = ini_.trouble();
    if (!trouble) {
        if (std::exchange(in_trouble_, false)) {
            journal_.log_own("The settings file is in force again: " + ini_.path().string());
        }
        return;
    }
    if (clock_.steady() - trouble->since >= IniFile::kStillness && is_due(kFileSubject, trouble->text)) {
        in_trouble_ = true;
        report(trouble->text + "; the settings that were read before stay in force");
    }
}

void SettingsKeeper::review()
{
    malformed_ = false;
    for (const auto& setting : deployment_.review()) {
        const auto name = name_of(*setting.row);
        if (!setting.complaint) {
            std::erase_if(reported_, [&](const auto& each) { return each.first.first == name; });
        } else {
            malformed_ = true;
            if (is_due(name, *setting.complaint)) {
                report(ini_.path().string() + " " + name + ": " + *setting.complaint
                    + "; the last valid value stays in force");
            }
        }
        compare(setting);
    }
}

void SettingsKeeper::compare(const Deployment::Review& setting)
{
    if (std::exchange(on_[setting.row], setting.is_on) && !setting.is_on) {
        journal_.warn_own("Setting " + name_of(*setting.row) + " is off now: "
            + (setting.value.empty() ? "its entry was removed"
                                     : "its entry says \"" + printable(setting.value) + "\""));
    }
}

bool SettingsKeeper::is_due(const std::string& subject, const std::string& cause)
{
    const auto now = clock_.steady();
    std::erase_if(reported_, [&](const auto& each) { return now - each.second >= kBetweenReports; });
    return reported_.size() < kMostReports && reported_.try_emplace({subject, cause}, now).second;
}

void SettingsKeeper::report(const std::string& description)
{
    journal_.ReportError("ReadIniValue", runtime_error(RuntimeError::FileAccess, description), no_address);
}

} // namespace qz::config
