// The database servers that the tests start for themselves, each on a free port, with its data in a folder of
// its own.
#pragma once

#include "platform/Machine.h"
#include "platform/odbc/OdbcLink.h"
#include "support/ServerProgram.h"
#include "support/TemporaryFolder.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace qz::test {

/// A server whose database VELTO belongs to the user "velto". It starts when it is made.
class DatabaseServer {
public:
    static constexpr const char* kUser = "velto";
    static constexpr const char* kPassword = "se;cr}et"; // what a connection string must put into braces

    /// Flushed: what is committed survives a power loss, as with the settings of the server's package. The
    /// tests need no more than that it survives a killed server.
    enum class Commits { Flushed, Written };

    explicit DatabaseServer(Commits commits = Commits::Written) : commits_(commits) { }
    DatabaseServer(const DatabaseServer&) = delete;
    DatabaseServer& operator=(const DatabaseServer&) = delete;
    virtual ~DatabaseServer() = default;

    /// The setting DBServerIP that leads to it.
    std::string address() const { return "127.0.0.1;Port=" + std::to_string(port_); }
    /// As the engine builds it.
    /// @param driver  a section of the folder's odbcinst.ini.
    std::string connection_string(const std::string& password) const;
    std::string connection_string() const { return connection_string(password()); }
    virtual std::string password() const { return kPassword; }
    /// Whether two connections may write to one table at a time.
    virtual bool locks_rows() const { return true; }
    /// A folder for ODBCSYSINI, in which the driver is registered under the name that the engine uses.
    std::filesystem::path driver_folder() const { return folder_.path() / "odbc"; }
    ServerProgram& program() { return *program_; }
    /// After it was killed.
    virtual void start() = 0;

protected:
    void register_driver(const std::string& file);
    /// Waits until somebody can connect.
    void wait_until_ready(const std::string& connection_string) const;
    std::filesystem::path path(const char* name) const { return folder_ / name; }

    Commits commits_;
    TemporaryFolder folder_;
    std::uint16_t port_ = free_port();
    std::string driver_;
    std::optional<ServerProgram> program_;
};

/// The server that VELTO_TEST_PROVIDER names (postgresql, mariadb, sqlserver); null when the tests run on the
/// embedded database. It runs until the program ends.
DatabaseServer* server_under_test();

/// Why the server cannot be started here; empty when it can.
std::string reason_against(const std::string& provider);
std::unique_ptr<DatabaseServer> make_database_server(
    const std::string& provider, DatabaseServer::Commits commits = DatabaseServer::Commits::Written);

/// A connection for tests: to the embedded database, or to the server under test, whose tables then stand for
/// the file. A file's tables are empty at its first use, those of ":memory:" at each Open.
std::unique_ptr<platform::Connection> make_test_connection(
    const platform::ConnectionOptions& options, const Clock& clock);

/// The same on a server of the caller's choice.
/// @param empty  empties the tables at each Open.
std::unique_ptr<platform::Connection> make_server_connection(DatabaseServer& server,
    const platform::ConnectionOptions& options, const platform::OdbcTimes& times, bool empty);

} // namespace qz::test
