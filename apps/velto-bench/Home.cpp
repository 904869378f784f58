#include "Home.h"

#include "Crowd.h"
#include "Process.h"

#include <fstream>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>

namespace velto::bench {

namespace {

constexpr const char* kDatabase = "VELTO.db";

struct Closer {
    void operator()(sqlite3* handle) const { sqlite3_close(handle); }
};

void run_sql(const std::filesystem::path& home, const std::string& sql)
{
    sqlite3* handle = nullptr;
    const int code = sqlite3_open((home / kDatabase).c_str(), &handle);
    const std::unique_ptr<sqlite3, Closer> owner(handle);
    if (code != SQLITE_OK || sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw std::runtime_error(std::string("the database cannot be prepared: ") + sqlite3_errmsg(handle));
    }
}

/// Rows with the numbers from 0 to count - 1 as n.
std::string numbers_below(std::size_t count)
{
    return "WITH RECURSIVE numbers(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM numbers WHERE n + 1 < "
        + std::to_string(count) + ") ";
}

} // namespace

PreparedHome::PreparedHome(std::filesystem::path server, std::filesystem::path folder, std::size_t accounts)
    : server_(std::move(server)), folder_(std::move(folder))
{
    std::filesystem::create_directories(folder_);
    if (!std::filesystem::is_empty(folder_)) {
        throw std::runtime_error("the scratch folder " + folder_.string() + " is not empty");
    }
    const auto prepared = this->prepared();
    run_program({server_.string(), "init", "--home", prepared.string()}, output());
    run_sql(prepared,
        "BEGIN; INSERT INTO users (UserName, Password, AccountActive) " + numbers_below(accounts)
            + "SELECT 'user' || n, 'secret', 1 FROM numbers;"
              "INSERT INTO rooms (RoomName, UserName_Owner) VALUES ('hall', 'user0'); COMMIT");
    const auto port = free_port();
    set(prepared, "General SetUp/ListeningPort", std::to_string(port));
    for (const auto* limit : {"Safeguards/MessagesPerSecond", "Transport/ConnectionsPerSecond"}) {
        set(prepared, limit, "0"); // it would be measured instead of the server
    }
    const Process encoding({server_.string(), "run", "--home", prepared.string()}, output());
    encoding.wait_for_port(port);
}

PreparedHome::~PreparedHome()
{
    std::error_code ignored; // what cannot be removed stays in the scratch folder
    std::filesystem::remove_all(folder_, ignored);
}

std::filesystem::path PreparedHome::copy(std::uint16_t port, const std::vector<std::string>& settings) const
{
    const auto home = folder_ / "home";
    std::filesystem::remove_all(home);
    std::filesystem::copy(prepared(), home, std::filesystem::copy_options::recursive);
    set(home, "General SetUp/ListeningPort", std::to_string(port));
    for (std::size_t i = 0; i + 1 < settings.size(); i += 2) {
        set(home, settings[i], settings[i + 1]);
    }
    return home;
}

void PreparedHome::set(
    const std::filesystem::path& home, const std::string& name, const std::string& value) const
{
    run_program({server_.string(), "config", "set", "--home", home.string(), name, value}, output());
}

void PreparedHome::set_secret(
    const std::filesystem::path& home, const std::string& name, const std::string& value) const
{
    const auto input = (folder_ / "secret").string();
    std::ofstream(input) << value << "\n";
    run_program({server_.string(), "config", "set", "--home", home.string(), name}, output(), input);
}

void PreparedHome::grow(const std::filesystem::path& home, std::size_t rows)
{
    if (rows == 0) {
        return;
    }
    // Numbers of messages as clients draw them: anywhere below 2^53.
    run_sql(home,
        "PRAGMA synchronous=OFF; PRAGMA cache_size=-400000; BEGIN; INSERT INTO messages (UserName_From, "
        "UserName_To, MsgID, Sent, "
        "SentTime, ReceivedTime, ExpirationTime, Delivered, DeliveredTime) "
            + numbers_below(rows)
            + "SELECT 'user' || (n % 200), 'user' || ((n + 1) % 200), random() & 9007199254740991, 1, "
              "'2026-01-02 03:04:05', '2026-01-02 03:04:05', '2026-01-02 03:19:05', 1, '2026-01-02 03:04:06' "
              "FROM numbers; INSERT INTO log (ActionTime, UserName, RemoteIP, Action) "
            + numbers_below(rows)
            + "SELECT '2026-01-02 03:04:05', 'user' || (n % 200), '127.0.0.1', 'New message from user' || "
              "(n % 200) || ' to user' || ((n + 1) % 200) || ' with MsgID ' || n FROM numbers; "
              // As if the server had done it all the while.
              "INSERT OR IGNORE INTO messagenumbers SELECT MsgID, IDMessage FROM messages ORDER BY MsgID; "
              "UPDATE messagenumbersseen SET SeenUntil = (SELECT max(IDMessage) FROM messages); COMMIT;"
              "PRAGMA wal_checkpoint(TRUNCATE)");
}

} // namespace velto::bench
