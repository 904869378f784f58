// A home whose rows are on a database server, which is started for it.
#pragma once

#include "Home.h"
#include "Process.h"
#include "support/DatabaseServer.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace velto::bench {

class DatabaseHome {
public:
    /// Starts a database server with the settings of its package, and copies a home's rows to it.
    /// @param provider  postgresql or mariadb.
    /// @param home      must outlive the object.
    DatabaseHome(const PreparedHome& home, const std::string& provider);

    /// The home's folder, with settings that lead to the database server.
    std::filesystem::path copy(std::uint16_t port) const;
    /// Processor time of the database server so far.
    Seconds time() const { return Seconds(server_->program().processor_time()); }

private:
    const PreparedHome& home_;
    std::unique_ptr<qz::test::DatabaseServer> server_;
};

} // namespace velto::bench
