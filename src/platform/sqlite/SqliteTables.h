// The tables of the embedded database, for those who make them or move them elsewhere.
#pragma once

#include "platform/database/Connection.h"

#include <string>

namespace qz::platform {

class SqliteDatabase;

class SqliteTables final : public Maintenance {
public:
    /// @param database  must outlive the object.
    explicit SqliteTables(SqliteDatabase& database) : database_(database) { }

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
    SqliteDatabase& database_;
};

} // namespace qz::platform
