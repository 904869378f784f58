// Rows of the tables that every message writes: what a turn does to them waits for its end, so that a row is
// written once a turn, and many rows together.
#pragma once

#include "platform/database/Connection.h"
#include "platform/odbc/OdbcTables.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace qz::platform {

/// Columns are named in lower case, and values have the types of their columns: see OdbcTables::converted.
class WaitingRows {
public:
    bool empty() const { return tables_.empty(); }
    /// No more rows should wait: they take memory.
    bool full() const;
    /// @param row  brings its key along.
    void add(const Table& table, std::int64_t key, RowChange row);
    /// A row whose key the database will give.
    void add(const Table& table, RowChange row);
    /// @throws EngineError RowGone when this turn has removed the row. Whether another program has is not
    /// noticed.
    void change(const Table& table, std::int64_t key, RowChange row);
    void remove(const Table& table, std::int64_t key);

    /// Whether the result of a statement about a table may depend on what waits.
    /// @param finds_by_fixed_columns  see Statement: rows that were changed do not count.
    bool concerns(const Table& table, bool finds_by_fixed_columns) const;
    /// Whether a changed row is among these of a table.
    bool shows_in(const ResultSet& result, const Table& table) const;

    /// What is to be written, in any order.
    std::vector<Step> steps(const OdbcTables& tables) const;
    void forget() { *this = {}; }

private:
    struct Waiting {
        const Table* table = nullptr;
        std::map<std::int64_t, RowChange> added;
        std::vector<RowChange> added_without_key;
        std::map<std::int64_t, RowChange> changed;
        std::set<std::int64_t> removed;
    };
    Waiting& waiting_in(const Table& table);

    std::map<std::string, Waiting, std::less<>> tables_;
    std::size_t rows_ = 0;
};

} // namespace qz::platform
