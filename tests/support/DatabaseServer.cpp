#include "support/DatabaseServer.h"

#include "base/Text.h"
#include "platform/odbc/OdbcProvider.h"
#include "platform/sqlite/SqliteProvider.h"
#include "store/Statements.h"
#include "support/MariaDbServer.h"
#include "support/PostgresServer.h"
#include "support/TdsServer.h"
#include "support/WatchedConnection.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace qz::test {

namespace {

using namespace std::chrono_literals;

const std::array<platform::Table, 11>& tables()
{
    using namespace store::tables;
    static const std::array<platform::Table, 11> all{kUsers, kBuddies, kRooms, kMessages, kLog, kCommand,
        kAutoReply, kQueue, kQueueText, kQueueCount, kLastLogOn};
    return all;
}

/// Opens what it is told with the connection string of the server, whatever string it is given.
class ServerConnection final : public platform::Connection {
public:
    ServerConnection(std::unique_ptr<platform::Connection> inner, DatabaseServer& server, bool empty)
        : inner_(std::move(inner)), server_(server), empty_(empty)
    {
    }
    void Open(const std::string& connection_string) override
    {
        const bool own = connection_string.find("Port=") != std::string::npos; // made for this server
        setenv("ODBCSYSINI", server_.driver_folder().c_str(), 1);
        inner_->Open(own ? connection_string : server_.connection_string());
        if (empty_) {
            if (inner_->maintenance().schema_version() == 0) {
                inner_->maintenance().make_schema();
            }
            for (const auto& table : tables()) {
                inner_->maintenance().delete_rows(table);
            }
        }
    }
    void Close() override { inner_->Close(); }
    platform::ConnectionState State() const override { return inner_->State(); }
    void run(const platform::Statement& statement, platform::Parameters values) override
    {
        inner_->run(statement, values);
    }
    platform::ResultSet query(const platform::Statement& statement, platform::Parameters values) override
    {
        return inner_->query(statement, values);
    }
    std::int64_t insert_row(const platform::Table& table, const platform::RowChange& row) override
    {
        return inner_->insert_row(table, row);
    }
    std::int64_t add_row(const platform::Table& table, const platform::RowChange& row) override
    {
        return inner_->add_row(table, row);
    }
    void update_row(const platform::Table& table, std::int64_t key, const platform::RowChange& row) override
    {
        inner_->update_row(table, key, row);
    }
    void delete_row(const platform::Table& table, std::int64_t key) override
    {
        inner_->delete_row(table, key);
    }
    void commit() override { inner_->commit(); }
    void rollback() override { inner_->rollback(); }
    std::uint64_t change_mark(const platform::Table& table) override { return inner_->change_mark(table); }
    std::uint64_t own_changes(const platform::Table& table) const override
    {
        return inner_->own_changes(table);
    }
    std::string description() const override { return inner_->description(); }
    std::vector<std::string> take_notices() override { return inner_->take_notices(); }
    platform::Maintenance& maintenance() override { return inner_->maintenance(); }

private:
    std::unique_ptr<platform::Connection> inner_;
    DatabaseServer& server_;
    bool empty_;
};

} // namespace

std::string DatabaseServer::connection_string(const std::string& password) const
{
    return "Driver={SQL Server};Server=" + address() + ";Database=VELTO;uid=" + kUser + ";pwd={"
        + replace_all(password, "}", "}}") + "};";
}

void DatabaseServer::register_driver(const std::string& file)
{
    driver_ = file;
    std::filesystem::create_directory(driver_folder());
    put_bytes(driver_folder() / "odbcinst.ini", "[SQL Server]\nDriver=" + file + "\n");
}

void DatabaseServer::wait_until_ready(const std::string& connection_string) const
{
    setenv("ODBCSYSINI", driver_folder().c_str(), 1);
    // By its file: the driver manager remembers for a while whose the name was, maybe another server's.
    const auto direct = replace_all(connection_string, "{SQL Server}", driver_);
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    for (;;) {
        try {
            platform::OdbcSession session(direct);
            return;
        } catch (const platform::OdbcFailure& failure) {
            if (std::chrono::steady_clock::now() > deadline) {
                throw std::runtime_error("the database server of the tests does not start: "
                    + failure.description + "\n" + bytes_of(path("log")));
            }
        }
        std::this_thread::sleep_for(50ms); // the only way to wait for another process
    }
}

std::string reason_against(const std::string& provider)
{
    return provider == "mariadb"  ? MariaDbServer::reason_against()
        : provider == "sqlserver" ? TdsServer::reason_against()
                                  : PostgresServer::reason_against();
}

std::unique_ptr<DatabaseServer> make_database_server(
    const std::string& provider, DatabaseServer::Commits commits)
{
    if (provider == "mariadb") {
        return std::make_unique<MariaDbServer>(commits);
    }
    if (provider == "sqlserver") {
        return std::make_unique<TdsServer>();
    }
    return std::make_unique<PostgresServer>(commits);
}

DatabaseServer* server_under_test()
{
    static const std::unique_ptr<DatabaseServer> server = [] {
        const char* provider = std::getenv("VELTO_TEST_PROVIDER");
        if (provider == nullptr) {
            return std::unique_ptr<DatabaseServer>();
        }
        if (const auto reason = reason_against(provider); !reason.empty()) {
            std::cout << "SKIPPED: " << reason << std::endl; // what CTest looks for
            std::_Exit(0);
        }
        return make_database_server(provider);
    }();
    return server.get();
}

std::unique_ptr<platform::Connection> make_server_connection(DatabaseServer& server,
    const platform::ConnectionOptions& options, const platform::OdbcTimes& times, bool empty)
{
    return std::make_unique<ServerConnection>(platform::make_odbc_connection(options, times), server, empty);
}

std::unique_ptr<platform::Connection> make_test_connection(
    const platform::ConnectionOptions& options, const Clock& clock)
{
    auto* server = server_under_test();
    if (server == nullptr) {
        return platform::make_sqlite_connection(options, clock);
    }
    static std::filesystem::path last;
    const bool empty = options.database_file == ":memory:" || options.database_file != last;
    last = options.database_file;
    return make_server_connection(*server, options, {}, empty);
}

} // namespace qz::test
