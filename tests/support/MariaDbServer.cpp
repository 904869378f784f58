#include "support/MariaDbServer.h"

#include <filesystem>
#include <stdexcept>

namespace qz::test {

namespace {

constexpr const char* kOwner = "mysql";
constexpr const char* kServer = "/usr/sbin/mariadbd";
constexpr const char* kSetup = "/usr/bin/mariadb-install-db";

} // namespace

std::string MariaDbServer::reason_against()
{
    return std::filesystem::exists(kServer) && std::filesystem::exists(kSetup)
        ? ""
        : "no MariaDB server is installed (package mariadb-server)";
}

MariaDbServer::MariaDbServer(Commits commits) : DatabaseServer(commits)
{
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755)); // for the server's user
    register_driver("libmaodbc.so");
    const auto home = path("server");
    std::filesystem::create_directory(home);
    give_to(home, kOwner);
    ServerProgram setup({kSetup, "--no-defaults", "--datadir=" + (home / "data").string(),
                            "--auth-root-authentication-method=normal", "--skip-test-db"},
        kOwner, path("log"));
    if (setup.wait() != 0) {
        throw std::runtime_error("mariadb-install-db failed: " + bytes_of(path("log")));
    }
    put_bytes(path("first.sql"),
        std::string("CREATE DATABASE IF NOT EXISTS VELTO;\n") + "CREATE USER IF NOT EXISTS '" + kUser
            + "'@'127.0.0.1' IDENTIFIED BY '" + kPassword + "';\nGRANT ALL ON VELTO.* TO '" + kUser
            + "'@'127.0.0.1';\n");
    start();
}

void MariaDbServer::start()
{
    const auto home = path("server");
    std::vector<std::string> words{kServer, "--no-defaults", "--datadir=" + (home / "data").string(),
        "--bind-address=127.0.0.1", "--port=" + std::to_string(port_),
        "--socket=" + (home / "socket").string(), "--pid-file=" + (home / "pid").string(),
        "--init-file=" + path("first.sql").string(), "--skip-name-resolve"};
    if (commits_ == Commits::Written) {
        words.insert(words.end(), {"--innodb-flush-log-at-trx-commit=2", "--innodb-buffer-pool-size=16M"});
    }
    program_.emplace(words, kOwner, path("log"));
    wait_until_ready(connection_string());
}

} // namespace qz::test
