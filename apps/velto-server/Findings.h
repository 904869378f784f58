// What a check has found, each with its place.
#pragma once

#include "Home.h"
#include "HostLog.h"
#include "common/Exit.h"
#include "config/SettingTable.h"
#include "config/SettingsFaults.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

class Findings {
public:
    enum class Weight { Warning, Error };

    explicit Findings(const Home& home) : home_(home) { }

    /// About an entry of the settings file.
    void add(Weight weight, std::string_view section, std::string_view key, const std::string& text);
    void add(Weight weight, const qz::config::SettingRow& row, const std::string& text);
    /// About a line of the settings file.
    void add(const qz::config::SettingsFault& fault);
    /// About a file or a folder.
    void add(Weight weight, const std::filesystem::path& file, const std::string& text);

    /// Prints them, one a line or as a JSON object.
    /// @return Exit::Configuration when there is an error among them.
    Exit conclude(bool json) const;
    /// Writes each as a line of the log.
    void write_to(HostLog& log) const;
    std::size_t count(Weight weight) const;

private:
    struct Finding {
        Weight weight;
        std::string file;
        std::string section; // empty when it is about the file
        std::string key;
        std::string text;
    };
    void print() const;
    void print_as_json() const;
    static std::string line(const Finding& finding);

    const Home& home_;
    std::vector<Finding> findings_;
};

} // namespace velto
