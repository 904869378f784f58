// The tables of a server: their columns, the texts of edits, making them, and moving rows in and out.
#pragma once

#include "platform/database/Connection.h"
#include "platform/odbc/OdbcLink.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace qz::platform {

/// An INSERT into these columns, without rows.
Step insert_step(const ServerDatabase& server, const Table& table, const std::vector<ServerColumn>& columns);

class OdbcTables final : public Maintenance {
public:
    /// @param link  must outlive the object.
    explicit OdbcTables(OdbcLink& link) : link_(link) { }

    /// An edit as a step, its values converted to the types of the columns.
    /// @throws EngineError when the table has no such column, or a value does not fit.
    Step insert(const Table& table, const RowChange& row) const;
    /// For a row that brings its key along.
    Step insert_with_key(const Table& table, const RowChange& row) const;
    Step insert_for_key(const Table& table, const RowChange& row) const;
    Step update(const Table& table, std::int64_t key, const RowChange& row) const;
    Step remove(const Table& table, std::int64_t key) const;
    Step remove(const Table& table, const std::set<std::int64_t>& keys) const;
    /// An edit with the names of the columns and the types of their values as the table has them.
    RowChange converted(const Table& table, const RowChange& row) const;
    /// Gives so many keys that no other row will get. It may add rows with them, to be taken back.
    Step reserve_keys(const Table& table, std::size_t count) const;
    Step count(const Table& table, std::int64_t key) const;
    /// @throws EngineError when there is no such table.
    const std::vector<ServerColumn>& columns(std::string_view table) const;

    int schema_version() override;
    int current_schema_version() const override;
    void make_schema() override;
    std::uint64_t count_rows(const Table& table) override;
    ResultSet read_rows(const Table& table, std::int64_t after, std::size_t count) override;
    void write_rows(const Table& table, const ResultSet& rows) override;
    void delete_rows(const Table& table) override;
    bool begin() override;
    void begin_reading() override;
    void commit() override;
    void roll_back() noexcept override;
    std::string set_mark() override;
    bool has_mark(const std::string& mark) override;
    void clear_mark(const std::string& mark) noexcept override;

private:
    const ServerColumn& column(const Table& table, std::string_view name) const;
    std::shared_ptr<const ManyRows> many_updates(
        const Table& table, const std::vector<const ServerColumn*>& targets) const;
    Outcome run(std::vector<Step> steps);
    void set_version(int version);

    OdbcLink& link_;
    bool together_ = false; // between begin and commit
};

} // namespace qz::platform
