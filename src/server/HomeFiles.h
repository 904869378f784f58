// Names of the files in a server's home folder.
#pragma once

namespace qz::server {

inline constexpr const char* kSettingsFile = "VELTO_Server.ini";
inline constexpr const char* kKeyFile = "VELTO_Server.key";
inline constexpr const char* kDatabaseFile = "VELTO.db";
inline constexpr const char* kKnownPlacesFile = "VELTO_Server.places";
inline constexpr const char* kLogsFolder = "Logs";

} // namespace qz::server
