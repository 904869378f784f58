#include "support/TdsServer.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace qz::test {

namespace {

/// Where the package puts the driver, by architecture.
std::filesystem::path driver()
{
    std::error_code none;
    for (const auto& folder : std::filesystem::directory_iterator("/usr/lib", none)) {
        const auto file = folder.path() / "odbc/libtdsodbc.so";
        if (std::filesystem::exists(file, none)) {
            return file;
        }
    }
    return {};
}

} // namespace

std::string TdsServer::reason_against()
{
    return driver().empty() ? "no driver for SQL Server is installed (package tdsodbc)" : "";
}

TdsServer::TdsServer()
{
    setenv(
        "TDSVER", "7.4", 1); // the driver reads no configuration file for an address in the connection string
    register_driver("libtdsodbc.so");
    start();
}

void TdsServer::start()
{
    program_.emplace(std::vector<std::string>{"/usr/bin/python3", "-B", VELTO_TDS_SERVER,
                         std::to_string(port_), path("tables.db"), kUser, password()},
        "", path("log"));
    wait_until_ready(connection_string());
}

} // namespace qz::test
