// The connection to the embedded database.
#pragma once

#include "platform/Machine.h"
#include "platform/database/Connection.h"
#include "platform/database/Shape.h"
#include "platform/sqlite/SqliteDatabase.h"
#include "platform/sqlite/SqliteTables.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qz::platform {

/// Reads run outside a transaction as long as the turn has not written anything.
class SqliteConnection final : public Connection {
public:
    SqliteConnection(const ConnectionOptions& options, const Clock& clock);

    void Open(const std::string& connection_string) override;
    void Close() override;
    ConnectionState State() const override;
    void Execute(const std::string& sql) override;
    ResultSet query(const std::string& sql) override;
    ResultSet describe(const std::string& sql) override;
    std::int64_t insert_row(const Table& table, const RowChange& row) override;
    void update_row(const Table& table, std::int64_t key, const RowChange& row) override;
    void delete_row(const Table& table, std::int64_t key) override;
    void end_turn() override;
    void abandon_turn() override;
    std::uint64_t change_mark(const Table& table) override;
    std::string description() const override;
    Maintenance& maintenance() override { return session().tables; }

private:
    /// A statement of the catalogue, prepared.
    struct Prepared {
        SqliteStatement statement;
        std::vector<std::size_t> holes; // of each parameter
        bool hidden_key;
    };
    /// What lives from Open to Close. Statements stand behind the database, so they go first.
    struct Session {
        explicit Session(const std::filesystem::path& file) : database(file) { }

        SqliteDatabase database;
        SqliteTables tables{database};
        std::set<std::string> columns;                   // "table.column" in lower case
        std::vector<std::unique_ptr<Prepared>> prepared; // by the shape's number
        std::unordered_map<std::string, std::unique_ptr<SqliteStatement>> edits;
        std::unique_ptr<SqliteStatement> begin;
        std::unique_ptr<SqliteStatement> commit;
        std::unique_ptr<SqliteStatement> data_version;
        bool in_turn = false;    // a transaction was begun and not committed yet
        bool changed = false;    // something succeeded in it
        bool turn_lost = false;  // the database threw away what had succeeded
        bool locked_out = false; // the last turn waited for a lock in vain
        std::int64_t last_version = 0;
    };

    Session& session();
    static Prepared& prepare(Session& open, const Shape& shape);
    /// The statement of an edit, prepared at its first use. Its names are checked then.
    static SqliteStatement& edit(
        Session& open, const std::string& sql, const Table& table, const RowChange& row);
    static void begin_turn(Session& open);
    /// Begins the turn when the statement writes, and runs it.
    ResultSet run(Session& open, SqliteStatement& statement, const Table* table);
    /// Runs an edit of one row.
    /// @return the number of rows that it changed.
    std::int64_t run_edit(const std::string& sql, const Table& table, const RowChange& row,
        std::optional<std::int64_t> key = std::nullopt);
    [[noreturn]] void fail(Session& open, int code);

    std::filesystem::path file_;
    Durability durability_;
    const Clock& clock_;
    Catalogue catalogue_;
    std::unique_ptr<Session> session_;
    /// Changes that cannot be told apart by table: by other connections, by lost turns, by opening.
    std::uint64_t common_changes_;
    std::map<std::string, std::uint64_t, std::less<>> own_changes_;
};

} // namespace qz::platform
