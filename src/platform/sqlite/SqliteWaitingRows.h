// New rows of the tables that every message writes: they wait in memory until the end of the turn, so that
// many are written by one statement, and so that what happens to a row within one turn is written once.
#pragma once

#include "base/Clock.h"
#include "platform/database/Connection.h"
#include "platform/sqlite/SqliteColumns.h"
#include "platform/sqlite/SqliteDatabase.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
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
    SqliteWaitingRows(SqliteDatabase& database, const Clock& clock);

    /// The table's bit; 0 when its rows do not wait.
    static Tables bit_of(std::string_view table);
    /// Tables with rows that wait.
    Tables waiting() const { return waiting_; }
    /// No more rows should wait: they take memory.
    bool full() const;

    /// @return the row's key.
    std::int64_t add(const Table& table, const RowChange& row);
    std::int64_t add(
        const Table& table, const std::vector<std::string>& columns, std::span<const Token> texts);
    /// Changes a row that waits.
    /// @return false when there is none with the key.
    bool change(const Table& table, std::int64_t key, const RowChange& row);
    /// Takes a row back that waits.
    bool remove(const Table& table, std::int64_t key);

    /// Writes what waits for these tables.
    /// @return SQLITE_DONE or the code of a failure, which rows are lost to; the transaction is then of no
    /// use.
    int write(Tables tables);
    /// Drops what waits.
    void forget();
    /// Others may have written: keys are counted anew. To be called while nothing waits.
    void forget_keys();
    /// Others may have changed the tables themselves. To be called while nothing waits.
    void forget_columns();

private:
    static constexpr std::array<std::size_t, 4> kTogether{64, 16, 4, 1}; // rows that one statement inserts

    /// Rows of one table with values for the same columns.
    struct Kind {
        std::vector<std::string> columns;
        std::size_t given = 0; // of these; the others are stamped with the time
        std::string text;      // of the INSERT, up to its values
        std::array<std::unique_ptr<SqliteStatement>, kTogether.size()> inserts;
        std::vector<std::pair<std::vector<std::string>, Kind*>>
            with_more; // columns, and the kind that has them
    };
    /// A text stands in `texts_`, from `whole` on.
    struct Cell {
        enum class Type : std::uint8_t { Null, Whole, Real, Text, Time };
        Type type = Type::Null;
        std::int64_t whole = 0;
        double real = 0;
        std::size_t size = 0; // of a text
        DateTime time{};
    };
    struct Row {
        Kind* kind; // none when the row was taken back
        std::size_t first_cell;
    };
    struct Waiting {
        std::optional<std::int64_t> last_key; // in the table or waiting
        std::deque<Kind> kinds;
        std::vector<Row> rows; // the last of them has the key last_key
        std::vector<Cell> cells;
    };

    Waiting& waiting_in(const Table& table);
    Kind& kind_for(Waiting& waiting, const Table& table, const std::vector<std::string>& columns);
    Kind& with_more(
        Waiting& waiting, const Table& table, Kind& kind, const std::vector<std::string>& columns);
    std::int64_t last_key(const Table& table);
    Cell cell(const Value& value);
    Cell cell(const Token& literal);
    Cell cell(std::string_view text);
    template <typename Values>
    std::int64_t add_all(const Table& table, const std::vector<std::string>& columns, const Values& values);
    void bind(SqliteStatement& statement, int parameter, const Cell& cell);
    Row* row(const Table& table, std::int64_t key);
    int write(Waiting& waiting);
    int write(const Waiting& waiting, Kind& kind);
    SqliteStatement& insert(Kind& kind, std::size_t size);
    std::string_view text_of(DateTime time);

    SqliteDatabase& database_;
    const Clock& clock_;
    std::optional<SqliteColumns> columns_;
    std::array<Waiting, 3> tables_;
    Tables waiting_ = 0;
    std::string texts_;
    std::vector<std::pair<std::int64_t, std::size_t>> of_kind_; // key and first cell, while a kind is written
    std::deque<std::pair<DateTime, std::string>> times_;        // texts of dates, as long as they are bound
};

} // namespace qz::platform
