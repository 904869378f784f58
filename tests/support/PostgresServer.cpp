#include "support/PostgresServer.h"

#include <filesystem>
#include <stdexcept>

namespace qz::test {

namespace {

constexpr const char* kOwner = "postgres";

/// The folder of the newest version's programs; empty when there is none.
std::filesystem::path programs()
{
    std::filesystem::path newest;
    std::error_code none;
    for (const auto& version : std::filesystem::directory_iterator("/usr/lib/postgresql", none)) {
        if (std::filesystem::exists(version.path() / "bin/postgres") && version.path() > newest) {
            newest = version.path();
        }
    }
    return newest.empty() ? newest : newest / "bin";
}

} // namespace

std::string PostgresServer::reason_against()
{
    return programs().empty() ? "no PostgreSQL server is installed (package postgresql-15)" : "";
}

PostgresServer::PostgresServer(Commits commits) : DatabaseServer(commits)
{
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755)); // for the server's user
    register_driver("psqlodbcw.so");
    const auto home = path("server");
    std::filesystem::create_directory(home);
    give_to(home, kOwner);
    put_bytes(path("password"), std::string(kPassword) + "\n");
    ServerProgram setup({programs() / "initdb", "-D", home / "data", "-U", kUser, "-A", "scram-sha-256",
                            "--pwfile", path("password"), "-E", "UTF8", "--locale", "C.UTF-8", "--no-sync"},
        kOwner, path("log"));
    if (setup.wait() != 0) {
        throw std::runtime_error("initdb failed: " + bytes_of(path("log")));
    }
    start();
    const auto text = connection_string();
    const auto admin = std::string(text).replace(text.find("=VELTO"), 6, "=postgres");
    platform::OdbcSession session(admin);
    session.run({{"CREATE DATABASE \"VELTO\""}});
}

void PostgresServer::start()
{
    std::vector<std::string> words{programs() / "postgres", "-D", path("server") / "data", "-p",
        std::to_string(port_), "-k", path("server"), "-c", "listen_addresses=127.0.0.1"};
    if (commits_ == Commits::Written) {
        for (const auto* setting :
            {"fsync=off", "full_page_writes=off", "shared_buffers=16MB", "autovacuum=off"}) {
            words.insert(words.end(), {"-c", setting});
        }
    }
    program_.emplace(words, kOwner, path("log"));
    const auto text = connection_string();
    wait_until_ready(std::string(text).replace(text.find("=VELTO"), 6, "=postgres"));
}

} // namespace qz::test
