#include "platform/sqlite/SqliteWaitingRows.h"

#include "base/Text.h"

#include <algorithm>
#include <bit>
#include <utility>

#include <sqlite3.h>

namespace qz::platform {

namespace {

constexpr std::array<std::string_view, 3> kTables{"log", "messages", "queue"};
constexpr std::size_t kMostBytes = std::size_t{1} << 20U;
constexpr std::size_t kBytesOfValue = 32; // about, besides its text

bool same_column(const std::string& left, const std::string& right)
{
    return left == right || equal_ignoring_case(left, right);
}

std::size_t size_of(const RowChange& row)
{
    std::size_t size = 0;
    for (const auto& value : row.values) {
        const auto* text = std::get_if<std::string>(&value.held());
        size += kBytesOfValue + (text == nullptr ? 0 : text->size());
    }
    return size;
}

} // namespace

SqliteWaitingRows::SqliteWaitingRows(SqliteDatabase& database, const Clock& clock)
    : database_(database), clock_(clock)
{
}

SqliteWaitingRows::Tables SqliteWaitingRows::bit_of(std::string_view table)
{
    for (std::size_t i = 0; i < kTables.size(); ++i) {
        if (kTables.at(i) == table) {
            return 1U << i;
        }
    }
    return 0;
}

bool SqliteWaitingRows::full() const
{
    return bytes_ > kMostBytes;
}

std::int64_t SqliteWaitingRows::add(const Table& table, const RowChange& row)
{
    auto& waiting = waiting_in(table);
    auto& kind = kind_for(waiting, table, row.columns);
    const auto key = last_key(table) + 1;
    auto& added = waiting.rows.emplace_back(Row{&kind, {}});
    added.values.reserve(kind.columns.size());
    added.values = row.values;
    added.values.resize(kind.columns.size(), Value(clock_.now()));
    waiting.last_key = key;
    waiting_ |= bit_of(table.name);
    bytes_ += size_of(row);
    return key;
}

bool SqliteWaitingRows::change(const Table& table, std::int64_t key, const RowChange& row)
{
    auto* const changed = this->row(table, key);
    if (changed == nullptr) {
        return false;
    }
    auto& kind = with_more(waiting_in(table), table, *changed->kind, row.columns);
    changed->kind = &kind;
    changed->values.resize(kind.columns.size());
    for (std::size_t i = 0; i < row.columns.size(); ++i) {
        const auto column = std::find_if(kind.columns.begin(), kind.columns.end(),
            [&](const std::string& each) { return same_column(each, row.columns[i]); });
        changed->values[static_cast<std::size_t>(column - kind.columns.begin())] = row.values[i];
    }
    bytes_ += size_of(row);
    return true;
}

bool SqliteWaitingRows::remove(const Table& table, std::int64_t key)
{
    auto* const removed = row(table, key);
    if (removed != nullptr) {
        *removed = {nullptr, {}};
    }
    return removed != nullptr;
}

int SqliteWaitingRows::write(Tables tables)
{
    int code = SQLITE_DONE;
    for (std::size_t i = 0; i < tables_.size() && code == SQLITE_DONE; ++i) {
        if ((tables & waiting_ & (1U << i)) != 0) {
            waiting_ &= ~(1U << i);
            code = write(tables_.at(i));
            tables_.at(i).rows.clear();
        }
    }
    if (waiting_ == 0) {
        bytes_ = 0;
        times_.clear();
    }
    return code;
}

void SqliteWaitingRows::forget()
{
    for (auto& waiting : tables_) {
        waiting.rows.clear();
        waiting.last_key.reset();
    }
    waiting_ = 0;
    bytes_ = 0;
    times_.clear();
}

void SqliteWaitingRows::forget_keys()
{
    for (auto& waiting : tables_) {
        waiting.last_key.reset();
    }
}

void SqliteWaitingRows::forget_columns()
{
    columns_.reset();
    tables_ = {};
}

SqliteWaitingRows::Waiting& SqliteWaitingRows::waiting_in(const Table& table)
{
    return tables_.at(static_cast<std::size_t>(std::countr_zero(bit_of(table.name))));
}

SqliteWaitingRows::Kind& SqliteWaitingRows::kind_for(
    Waiting& waiting, const Table& table, const std::vector<std::string>& columns)
{
    for (auto& kind : waiting.kinds) {
        if (kind.given == columns.size()
            && std::equal(columns.begin(), columns.end(), kind.columns.begin())) {
            return kind;
        }
    }
    if (!columns_) {
        columns_.emplace(database_);
    }
    columns_->require(table, table.key);
    std::string text = "INSERT INTO " + bracketed(table.name) + " (" + bracketed(table.key);
    auto all = columns;
    for (const auto& stamped : columns_->stamped(table)) {
        if (std::none_of(columns.begin(), columns.end(),
                [&](const std::string& column) { return same_column(column, stamped); })) {
            all.push_back(stamped);
        }
    }
    for (const auto& column : all) {
        columns_->require(table, column);
        text += ", " + bracketed(column);
    }
    return waiting.kinds.emplace_back(Kind{std::move(all), columns.size(), text + ") VALUES ", {}, {}});
}

/// The kind that has these columns besides its own.
SqliteWaitingRows::Kind& SqliteWaitingRows::with_more(
    Waiting& waiting, const Table& table, Kind& kind, const std::vector<std::string>& columns)
{
    for (const auto& [more, known] : kind.with_more) {
        if (more == columns) {
            return *known;
        }
    }
    auto all = kind.columns;
    for (const auto& column : columns) {
        if (std::none_of(
                all.begin(), all.end(), [&](const std::string& each) { return same_column(each, column); })) {
            all.push_back(column);
        }
    }
    auto& wider = kind_for(waiting, table, all);
    kind.with_more.emplace_back(columns, &wider);
    return wider;
}

/// The greatest key that the table has ever had, as the database counts it.
std::int64_t SqliteWaitingRows::last_key(const Table& table)
{
    auto& last = waiting_in(table).last_key;
    if (!last) {
        last = static_cast<std::int64_t>(
            database_
                .read("SELECT max(ifnull((SELECT max(" + bracketed(table.key) + ") FROM "
                    + bracketed(table.name)
                    + "), 0), ifnull((SELECT max(seq) FROM sqlite_sequence WHERE name = '"
                    + std::string(table.name) + "' COLLATE NOCASE), 0))")
                .number());
    }
    return *last;
}

SqliteWaitingRows::Row* SqliteWaitingRows::row(const Table& table, std::int64_t key)
{
    if ((waiting_ & bit_of(table.name)) == 0) {
        return nullptr;
    }
    auto& waiting = waiting_in(table);
    const auto back = *waiting.last_key - key; // how many rows stand behind it
    if (back < 0 || back >= static_cast<std::int64_t>(waiting.rows.size())) {
        return nullptr;
    }
    auto& found = waiting.rows[waiting.rows.size() - 1 - static_cast<std::size_t>(back)];
    return found.kind == nullptr ? nullptr : &found;
}

int SqliteWaitingRows::write(Waiting& waiting)
{
    const auto first_key = *waiting.last_key - static_cast<std::int64_t>(waiting.rows.size()) + 1;
    std::vector<std::pair<std::int64_t, const Row*>> rows;
    rows.reserve(waiting.rows.size());
    for (auto& kind : waiting.kinds) {
        rows.clear();
        for (std::size_t i = 0; i < waiting.rows.size(); ++i) {
            if (waiting.rows[i].kind == &kind) {
                rows.emplace_back(first_key + static_cast<std::int64_t>(i), &waiting.rows[i]);
            }
        }
        const int code = write(kind, rows);
        if (code != SQLITE_DONE) {
            return code;
        }
    }
    return SQLITE_DONE;
}

int SqliteWaitingRows::write(Kind& kind, const std::vector<std::pair<std::int64_t, const Row*>>& rows)
{
    int code = SQLITE_DONE;
    for (std::size_t done = 0; done < rows.size() && code == SQLITE_DONE;) {
        std::size_t size = 0;
        while (kTogether.at(size) > rows.size() - done) {
            ++size;
        }
        auto& statement = insert(kind, size);
        int parameter = 0;
        for (const auto end = done + kTogether.at(size); done < end; ++done) {
            statement.bind(++parameter, Value(rows[done].first));
            for (const auto& value : rows[done].second->values) {
                const auto* time = std::get_if<DateTime>(&value.held());
                ++parameter;
                time == nullptr ? statement.bind(parameter, value)
                                : statement.bind(parameter, text_of(*time));
            }
        }
        code = statement.step();
        statement.reset();
    }
    return code;
}

SqliteStatement& SqliteWaitingRows::insert(Kind& kind, std::size_t size)
{
    auto& statement = kind.inserts.at(size);
    if (!statement) {
        std::string row = "(?";
        for (std::size_t i = 0; i < kind.columns.size(); ++i) {
            row += ", ?";
        }
        row += ")";
        auto text = kind.text + row;
        for (std::size_t i = 1; i < kTogether.at(size); ++i) {
            text += ", " + row;
        }
        statement = std::make_unique<SqliteStatement>(database_, text);
    }
    return *statement;
}

/// A turn has few different times, and the same again and again.
std::string_view SqliteWaitingRows::text_of(DateTime time)
{
    constexpr std::ptrdiff_t kLatest = 8;
    const auto end = times_.rbegin() + (std::min)(kLatest, static_cast<std::ptrdiff_t>(times_.size()));
    const auto known =
        std::find_if(times_.rbegin(), end, [&](const auto& each) { return each.first == time; });
    return known == end ? times_.emplace_back(time, time.text()).second : known->second;
}

} // namespace qz::platform
