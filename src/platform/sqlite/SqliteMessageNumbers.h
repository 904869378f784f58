// Which rows of `messages` have which number: a table that is brought up to date when somebody asks, and
// otherwise many rows at a time. Their numbers come in no order; entered in order, many share a page.
#pragma once

#include "platform/sqlite/SqliteDatabase.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace qz::platform {

class SqliteMessageNumbers {
public:
    /// @param database  with its schema; must outlive the object.
    explicit SqliteMessageNumbers(SqliteDatabase& database) : database_(database) { }

    /// Whether there are rows whose numbers are not entered.
    bool is_behind();
    /// Enters the numbers of all rows. In a transaction that writes.
    void catch_up();
    /// A turn's share of the work. In a transaction that writes.
    void advance();
    /// What was done since the last commit is undone.
    void turn_lost();
    /// Another program may have changed the tables.
    void others_wrote() { seen_.reset(); }

private:
    struct Statements {
        explicit Statements(SqliteDatabase& database);

        SqliteStatement last_row;
        SqliteStatement seen;
        SqliteStatement set_seen;
        SqliteStatement enter_all;
        SqliteStatement next_rows;
        SqliteStatement enter;
    };
    struct Numbered {
        double number;
        std::int64_t row;
    };

    void collect();
    void enter_some();
    void enter(const Value& number, std::int64_t row);
    void forget_batch();
    std::int64_t seen();
    void set_seen(std::int64_t row);
    std::int64_t read(SqliteStatement& statement);
    void run(SqliteStatement& statement);
    Statements& statements();

    SqliteDatabase& database_;
    std::optional<Statements> statements_; // from the first use on
    std::optional<std::int64_t> seen_;     // row up to which all numbers are entered; none: not read yet
    // The rows behind that one whose numbers are collected, and then entered in the order of their numbers.
    std::vector<Numbered> batch_;
    std::int64_t batch_until_ = 0;  // the last row that was looked at; 0: none was
    bool entering_ = false;         // the batch is complete and sorted
    std::size_t batch_entered_ = 0; // so many of it are
};

} // namespace qz::platform
