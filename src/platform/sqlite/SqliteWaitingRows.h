// New rows of the tables that every message writes, and edits of rows that were added before: they wait in
// memory until the end of the turn, so that many are written by one statement, and so that what happens to a
// row within one turn is written once.
#pragma once

#include "base/Clock.h"
#include "platform/database/Connection.h"
#include "platform/database/LogBacklog.h"
#include "platform/sqlite/SqliteCells.h"
#include "platform/sqlite/SqliteColumns.h"
#include "platform/sqlite/SqliteDatabase.h"
#include "platform/sqlite/SqliteEdits.h"
#include "platform/sqlite/SqliteWaitingEdits.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qz::platform {

/// Keys are given here and not by the database, which is right as long as this connection holds the lock for
/// writing: between a call of add and the next forget.
class SqliteWaitingRows {
public:
    /// Tables by their positions: the bit 1 << position.
    using Tables = unsigned;

    /// @param database  and the others must outlive the object.
    SqliteWaitingRows(SqliteDatabase& database, SqliteEdits& edits, const Clock& clock);

    /// The table's bit; 0 when its rows do not wait.
    static Tables bit_of(std::string_view table);
    /// Tables with rows or edits that wait.
    Tables waiting() const { return waiting_; }
    /// Whether edits of stored rows wait: another edit must not overtake them.
    bool edits_wait(const Table& table) { return !waiting_in(table).edits.empty(); }
    /// No more should wait: it takes memory.
    bool full() const;

    /// @return the row's key.
    std::int64_t add(const Table& table, const RowChange& row);
    /// Changes a row that waits, or one that is known to be stored.
    /// @return false when it is neither, or when its change cannot wait.
    bool change(const Table& table, std::int64_t key, const RowChange& row);
    /// Removes a row in the same way.
    bool remove(const Table& table, std::int64_t key);

    /// Writes what waits for these tables.
    /// @throws EngineError after which rows are missing: the transaction must not be committed.
    void write(Tables tables);
    /// The turn is stored.
    void turn_stored();
    /// Takes this turn's rows of the log out, also those that are written: the turn is about to be lost. A
    /// turn that wrote more than may wait has only the latest of them.
    std::vector<LogRow> take_log();
    /// Drops what waits.
    void forget();
    /// Others may have written: keys are counted anew, and no row is known to be stored. To be called while
    /// nothing waits.
    void forget_keys();
    /// Others may have changed the tables themselves. To be called while nothing waits.
    void forget_columns();

private:
    static constexpr std::array<std::size_t, 4> kTogether{64, 16, 4, 1}; // rows that one statement inserts

    struct Kind;
    /// A kind that has more columns than another one, and where in it these columns stand.
    struct Wider {
        std::vector<std::string> columns;
        Kind* kind;
        std::vector<std::size_t> positions;
    };
    /// Rows of one table with values for the same columns.
    struct Kind {
        std::vector<std::string> columns;
        std::size_t given = 0; // of these; the others are stamped with the time
        std::array<std::unique_ptr<SqliteStatement>, kTogether.size()> inserts_with_keys;
        std::array<std::unique_ptr<SqliteStatement>, kTogether.size()> inserts;
        std::deque<Wider> wider;
    };
    struct Row {
        Kind* kind; // none when the row was taken back
        std::size_t first_cell;
    };
    struct Waiting {
        std::optional<std::int64_t> last_key; // in the table or waiting
        std::int64_t last_stored = 0;         // what the database counts on from
        /// From here on, rows were added by this object, and nobody else has written since: those that do not
        /// wait are stored, unless their removal was asked for.
        std::optional<std::int64_t> known_from;
        std::deque<Kind> kinds;
        std::vector<Row> rows; // the last of them has the key last_key
        std::vector<SqliteCell> cells;
        SqliteWaitingEdits edits;
    };

    Waiting& waiting_in(const Table& table);
    Kind& kind_for(Waiting& waiting, const Table& table, const std::vector<std::string>& columns);
    const Wider& wider(
        Waiting& waiting, const Table& table, Kind& kind, const std::vector<std::string>& columns);
    Tables bit_of(const Waiting& waiting) const;
    std::int64_t last_key(Waiting& waiting, const Table& table);
    void forget_log();
    LogRow log_row(const Waiting& waiting, const Row& row) const;
    static Row* row(Waiting& waiting, std::int64_t key);
    static bool is_stored(const Waiting& waiting, std::int64_t key);
    void change(Waiting& waiting, const Table& table, Row& row, const RowChange& change);
    void write_table(std::size_t position);
    void write(Waiting& waiting, const Table& table, Kind& kind);
    void insert(Waiting& waiting, const Table& table, Kind& kind, std::size_t size, std::size_t first);
    SqliteStatement& statement(const Table& table, Kind& kind, std::size_t size, bool with_keys);

    SqliteDatabase& database_;
    SqliteEdits& edits_;
    const Clock& clock_;
    std::optional<SqliteColumns> columns_;
    std::array<Waiting, 4> tables_;
    Tables waiting_ = 0;
    SqliteCells cells_;
    std::vector<Row> written_log_;                              // in this turn; their cells are kept
    std::vector<std::pair<std::int64_t, std::size_t>> of_kind_; // key and first cell, while a kind is written
};

} // namespace qz::platform
