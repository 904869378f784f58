// Which rows of `messages` have which number: a table that new rows are entered in many at a time. Their
// numbers come in no order; entered in order, many share a page. Until then they are known in memory.
#pragma once

#include "platform/sqlite/SqliteDatabase.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace qz::platform {

class SqliteMessageNumbers {
public:
    /// @param database  with its schema; must outlive the object.
    explicit SqliteMessageNumbers(SqliteDatabase& database) : database_(database) { }

    /// Whether the table lacks rows with this number. Reads only.
    bool lacks(const Value& number);
    /// Enters the rows with a number. In a transaction that writes.
    void enter_rows_with(const Value& number);
    /// A turn's share of the work. In a transaction that writes.
    void advance();
    /// What was done since the last commit is undone.
    void turn_lost();
    /// Another program may have changed the tables.
    void others_wrote() { unsure_ = true; }

private:
    struct Statements {
        explicit Statements(SqliteDatabase& database);

        SqliteStatement last_row;
        SqliteStatement seen;
        SqliteStatement set_seen;
        SqliteStatement next_rows;
        SqliteStatement enter;
    };
    struct Numbered {
        double number;
        std::int64_t row;
    };

    void collect(std::int64_t rows);
    void sort_new();
    void begin_entering();
    void enter_some();
    void enter_uncommon();
    void enter(const Value& number, std::int64_t row);
    template <typename Visit> void visit_rows_with(double number, Visit visit) const;
    void look_again();
    void forget();
    void set_seen(std::int64_t row);
    Statements& statements();

    SqliteDatabase& database_;
    std::optional<Statements> statements_; // from the first use on
    std::int64_t seen_ = 0;                // row up to which all numbers are entered
    bool unsure_ = true;                   // that it is still that row, and that the rows behind it are there
    // Rows behind that one, up to collected_until_. First those that are being entered, by number.
    std::vector<Numbered> entering_;
    std::size_t entered_ = 0; // so many of them are
    std::int64_t entering_until_ = 0;
    // Then those whose time has not come: by number, but for the last few.
    std::vector<Numbered> collected_;
    std::size_t sorted_ = 0;
    std::int64_t collected_until_ = 0; // 0: nothing is
    // What other programs wrote in place of a number.
    std::vector<std::pair<Value, std::int64_t>> uncommon_;
};

} // namespace qz::platform
