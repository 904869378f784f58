#include "platform/sqlite/SqliteMessageNumbers.h"

#include <algorithm>
#include <cmath>
#include <sqlite3.h>
#include <variant>

namespace qz::platform {

namespace {

// A million numbers take about 5,000 pages, so of a batch a dozen share one; it takes 1 MiB of memory, and
// whoever asks in between waits until it is entered, a tenth of a second.
constexpr std::size_t kBatch = 65'536;
constexpr std::int64_t kRowsATurn = 1'000; // about a millisecond

/// Every number that a client can give; not what other programs can write besides.
std::optional<double> common_number(const Value& value)
{
    constexpr double kLargest = 9007199254740992; // up to it a double holds every whole number
    const auto& held = value.held();
    const auto* whole = std::get_if<std::int64_t>(&held);
    const auto* real = std::get_if<double>(&held);
    const auto number = whole != nullptr ? static_cast<double>(*whole) : real != nullptr ? *real : kLargest;
    return std::abs(number) < kLargest ? std::optional(number) : std::nullopt;
}

} // namespace

SqliteMessageNumbers::Statements::Statements(SqliteDatabase& database)
    : last_row(database, "SELECT coalesce(max(IDMessage), 0) FROM messages"),
      seen(database, "SELECT SeenUntil FROM messagenumbersseen"),
      set_seen(database, "UPDATE messagenumbersseen SET SeenUntil = ?"),
      enter_all(database,
          "INSERT OR IGNORE INTO messagenumbers (MsgID, IDMessage) SELECT MsgID, IDMessage FROM messages "
          "WHERE IDMessage > ? AND MsgID IS NOT NULL ORDER BY MsgID"),
      next_rows(
          database, "SELECT IDMessage, MsgID FROM messages WHERE IDMessage > ? ORDER BY IDMessage LIMIT ?"),
      enter(database, "INSERT OR IGNORE INTO messagenumbers (MsgID, IDMessage) VALUES (?, ?)")
{
}

bool SqliteMessageNumbers::is_behind()
{
    return read(statements().last_row) > seen();
}

void SqliteMessageNumbers::catch_up()
{
    const auto last = read(statements().last_row);
    auto& enter = statements().enter_all;
    enter.bind(1, Value(seen()));
    run(enter);
    set_seen(last);
    forget_batch();
}

void SqliteMessageNumbers::advance()
{
    if (!entering_) {
        collect();
    } else {
        enter_some();
    }
}

void SqliteMessageNumbers::collect()
{
    auto& rows = statements().next_rows;
    const SqliteRun end(rows);
    rows.bind(1, Value((std::max)(batch_until_, seen())));
    rows.bind(2, Value(kRowsATurn));
    int code = rows.step();
    for (; code == SQLITE_ROW; code = rows.step()) {
        const auto row = std::get<std::int64_t>(rows.column(0).held());
        const auto value = rows.column(1);
        if (const auto number = common_number(value)) {
            batch_.push_back({*number, row});
        } else if (!value.is_null()) {
            enter(value, row);
        }
        batch_until_ = row;
    }
    if (code != SQLITE_DONE) {
        throw database_.error(code);
    }
    if (batch_.size() >= kBatch) {
        std::sort(batch_.begin(), batch_.end(),
            [](const Numbered& left, const Numbered& right) { return left.number < right.number; });
        entering_ = true;
    }
}

void SqliteMessageNumbers::enter_some()
{
    const auto until = (std::min)(batch_entered_ + kRowsATurn, batch_.size());
    for (; batch_entered_ < until; ++batch_entered_) {
        enter(Value(batch_[batch_entered_].number), batch_[batch_entered_].row);
    }
    if (batch_entered_ == batch_.size()) {
        set_seen(batch_until_);
        forget_batch();
    }
}

void SqliteMessageNumbers::enter(const Value& number, std::int64_t row)
{
    auto& statement = statements().enter;
    statement.bind(1, number);
    statement.bind(2, Value(row));
    run(statement);
}

void SqliteMessageNumbers::turn_lost()
{
    others_wrote();
    forget_batch();
}

void SqliteMessageNumbers::forget_batch()
{
    batch_.clear();
    batch_until_ = 0;
    entering_ = false;
    batch_entered_ = 0;
}

std::int64_t SqliteMessageNumbers::seen()
{
    if (!seen_) {
        seen_ = read(statements().seen);
    }
    return *seen_;
}

void SqliteMessageNumbers::set_seen(std::int64_t row)
{
    auto& statement = statements().set_seen;
    statement.bind(1, Value(row));
    run(statement);
    seen_ = row;
}

std::int64_t SqliteMessageNumbers::read(SqliteStatement& statement)
{
    const SqliteRun end(statement);
    const int code = statement.step();
    if (code != SQLITE_ROW) {
        throw database_.error(code);
    }
    return static_cast<std::int64_t>(statement.column(0).number());
}

void SqliteMessageNumbers::run(SqliteStatement& statement)
{
    const SqliteRun end(statement);
    const int code = statement.step();
    if (code != SQLITE_DONE) {
        throw database_.error(code);
    }
}

SqliteMessageNumbers::Statements& SqliteMessageNumbers::statements()
{
    if (!statements_) {
        statements_.emplace(database_);
    }
    return *statements_;
}

} // namespace qz::platform
