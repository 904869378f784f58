// Who is on line, for other processes on the machine: read from the sections that the engine keeps in the
// settings file.
#pragma once

#include "config/IniFile.h"

#include <cstdint>
#include <filesystem>
#include <string>

namespace qz::online {

/// Where the engine writes and others read.
inline constexpr const char* kInfoSection = "OnLineInfo";
inline constexpr const char* kRefreshKey = "lasttimerefresh";
inline constexpr const char* kCountKey = "onlinebuddies";
inline constexpr const char* kStatusSection = "UsersStatus";

/// Needs no engine: a web page makes one on the home of a server that runs elsewhere.
class OnLineInfo {
public:
    explicit OnLineInfo(const std::filesystem::path& settings_file) : ini_(settings_file) { }

    /// Number of users on line at the last refresh; 0 before the first.
    std::int32_t get_OnLineUsers() const;
    /// Status text of a user at the last refresh, letter case aside; empty when there is none.
    std::string get_UserStatus(const std::string& screen_name) const;

private:
    config::IniFile ini_;
};

} // namespace qz::online
