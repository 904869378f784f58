#include "platform/sqlite/SqliteMessageNumbers.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sqlite3.h>
#include <utility>
#include <variant>

namespace qz::platform {

namespace {

// A million numbers take about 5,000 pages, so of a batch a dozen share one; it takes 1 MiB of memory.
constexpr std::size_t kBatch = 65'536;
constexpr std::int64_t kRowsATurn = 1'000; // about a millisecond
constexpr std::size_t kUnsorted = 1'024;   // looked through one by one
constexpr auto kAllRows = (std::numeric_limits<std::int64_t>::max)();

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

constexpr auto kByNumber = [](const auto& left, const auto& right) {
    return left.number < right.number;
};

} // namespace

SqliteMessageNumbers::Statements::Statements(SqliteDatabase& database)
    : last_row(database, "SELECT coalesce(max(IDMessage), 0) FROM messages"),
      seen(database, "SELECT SeenUntil FROM messagenumbersseen"),
      set_seen(database, "UPDATE messagenumbersseen SET SeenUntil = ?"),
      next_rows(
          database, "SELECT IDMessage, MsgID FROM messages WHERE IDMessage > ? ORDER BY IDMessage LIMIT ?"),
      enter(database, "INSERT OR IGNORE INTO messagenumbers (MsgID, IDMessage) VALUES (?, ?)")
{
}

bool SqliteMessageNumbers::lacks(const Value& number)
{
    collect(kAllRows);
    bool found = !uncommon_.empty();
    if (const auto common = common_number(number)) {
        visit_rows_with(*common, [&](const Numbered&) { found = true; });
    }
    return found;
}

void SqliteMessageNumbers::enter_rows_with(const Value& number)
{
    enter_uncommon();
    if (const auto common = common_number(number)) {
        visit_rows_with(*common, [&](const Numbered& each) { enter(number, each.row); });
    }
}

void SqliteMessageNumbers::advance()
{
    collect(kRowsATurn);
    enter_uncommon();
    if (entering_.empty() && collected_.size() >= kBatch) {
        begin_entering();
    }
    if (!entering_.empty()) {
        enter_some();
    }
}

/// Takes the next rows of the table, so many at most.
void SqliteMessageNumbers::collect(std::int64_t rows)
{
    if (unsure_) {
        look_again();
    }
    auto& next = statements().next_rows;
    const SqliteRun end(next);
    next.bind(1, Value((std::max)(collected_until_, seen_)));
    next.bind(2, Value(rows));
    int code = next.step();
    for (; code == SQLITE_ROW; code = next.step()) {
        collected_until_ = std::get<std::int64_t>(next.column(0).held());
        auto value = next.column(1);
        if (const auto number = common_number(value)) {
            collected_.push_back({*number, collected_until_});
        } else if (!value.is_null()) {
            uncommon_.emplace_back(std::move(value), collected_until_);
        }
    }
    if (code != SQLITE_DONE) {
        throw database_.error(code);
    }
    if (collected_.size() - sorted_ > kUnsorted) {
        sort_new();
    }
}

void SqliteMessageNumbers::sort_new()
{
    const auto middle = collected_.begin() + static_cast<std::ptrdiff_t>(sorted_);
    std::sort(middle, collected_.end(), kByNumber);
    std::inplace_merge(collected_.begin(), middle, collected_.end(), kByNumber);
    sorted_ = collected_.size();
}

void SqliteMessageNumbers::begin_entering()
{
    sort_new();
    entering_ = std::exchange(collected_, {});
    entering_until_ = collected_until_;
    entered_ = 0;
    sorted_ = 0;
}

void SqliteMessageNumbers::enter_some()
{
    const auto until = (std::min)(entered_ + kRowsATurn, entering_.size());
    for (; entered_ < until; ++entered_) {
        enter(Value(entering_[entered_].number), entering_[entered_].row);
    }
    if (entered_ == entering_.size()) {
        set_seen(entering_until_);
        entering_ = {};
    }
}

void SqliteMessageNumbers::enter_uncommon()
{
    while (!uncommon_.empty()) {
        enter(uncommon_.back().first, uncommon_.back().second);
        uncommon_.pop_back();
    }
}

void SqliteMessageNumbers::enter(const Value& number, std::int64_t row)
{
    auto& statement = statements().enter;
    statement.bind(1, number);
    statement.bind(2, Value(row));
    statement.run();
}

/// Those that are not entered, or may not be.
template <typename Visit> void SqliteMessageNumbers::visit_rows_with(double number, Visit visit) const
{
    const Numbered wanted{number, 0};
    const auto visit_sorted = [&](auto begin, auto end) {
        const auto [first, last] = std::equal_range(begin, end, wanted, kByNumber);
        std::for_each(first, last, visit);
    };
    const auto sorted_end = collected_.begin() + static_cast<std::ptrdiff_t>(sorted_);
    visit_sorted(entering_.begin(), entering_.end());
    visit_sorted(collected_.begin(), sorted_end);
    std::for_each(sorted_end, collected_.end(), [&](const Numbered& each) {
        if (each.number == number) {
            visit(each);
        }
    });
}

void SqliteMessageNumbers::turn_lost()
{
    unsure_ = true;
    forget();
}

void SqliteMessageNumbers::look_again()
{
    seen_ = static_cast<std::int64_t>(statements().seen.read().number());
    if (statements().last_row.read().number() < static_cast<double>(collected_until_)) {
        forget(); // keys may begin anew
    }
    unsure_ = false;
}

void SqliteMessageNumbers::forget()
{
    entering_ = {};
    collected_ = {};
    sorted_ = 0;
    collected_until_ = 0;
    uncommon_.clear();
}

void SqliteMessageNumbers::set_seen(std::int64_t row)
{
    auto& statement = statements().set_seen;
    statement.bind(1, Value(row));
    statement.run();
    seen_ = row;
}

SqliteMessageNumbers::Statements& SqliteMessageNumbers::statements()
{
    if (!statements_) {
        statements_.emplace(database_);
    }
    return *statements_;
}

} // namespace qz::platform
