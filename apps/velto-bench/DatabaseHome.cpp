#include "DatabaseHome.h"

namespace velto::bench {

using qz::test::DatabaseServer;

DatabaseHome::DatabaseHome(const PreparedHome& home, const std::string& provider) : home_(home)
{
    const OnAllCores free; // only the measured program has a core for itself
    server_ = qz::test::make_database_server(provider, DatabaseServer::Commits::Flushed);
    const auto folder = copy(free_port());
    const auto program = home_.server().string();
    run_program({program, "db", "init", "--home", folder.string()}, home_.output());
    run_program({program, "db", "copy", "--from", home_.prepared().string(), "--to", folder.string()},
        home_.output());
}

std::filesystem::path DatabaseHome::copy(std::uint16_t port) const
{
    auto folder = home_.copy(port,
        {"Storage/Provider", "odbc", "DB SetUp/dbServerIP", server_->address(), "DB SetUp/dbUserName",
            DatabaseServer::kUser});
    home_.set_secret(folder, "DB SetUp/dbPassword", DatabaseServer::kPassword);
    return folder;
}

} // namespace velto::bench
