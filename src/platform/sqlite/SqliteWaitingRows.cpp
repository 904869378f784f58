#include "platform/sqlite/SqliteWaitingRows.h"

#include "base/Text.h"
#include "platform/database/Shape.h"

#include <algorithm>
#include <bit>
#include <utility>

#include <sqlite3.h>

namespace qz::platform {

namespace {

constexpr std::array<std::string_view, 3> kTables{"log", "messages", "queue"};
constexpr std::size_t kMostBytes = std::size_t{1} << 20U;
bool same_column(const std::string& left, const std::string& right)
{
    return left == right || equal_ignoring_case(left, right);
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
    constexpr std::size_t kMostCells = 100'000;
    return texts_.size() > kMostBytes
        || std::any_of(tables_.begin(), tables_.end(),
            [](const Waiting& waiting) { return waiting.cells.size() > kMostCells; });
}

std::int64_t SqliteWaitingRows::add(const Table& table, const RowChange& row)
{
    return add_all(table, row.columns, row.values);
}

std::int64_t SqliteWaitingRows::add(
    const Table& table, const std::vector<std::string>& columns, std::span<const Token> texts)
{
    return add_all(table, columns, texts);
}

template <typename Values>
std::int64_t SqliteWaitingRows::add_all(
    const Table& table, const std::vector<std::string>& columns, const Values& values)
{
    auto& waiting = waiting_in(table);
    auto& kind = kind_for(waiting, table, columns);
    const auto key = last_key(table) + 1;
    waiting.rows.push_back({&kind, waiting.cells.size()});
    for (const auto& value : values) {
        waiting.cells.push_back(cell(value));
    }
    for (auto i = columns.size(); i < kind.columns.size(); ++i) {
        waiting.cells.push_back({.type = Cell::Type::Time, .time = clock_.now()});
    }
    waiting.last_key = key;
    waiting_ |= bit_of(table.name);
    return key;
}

SqliteWaitingRows::Cell SqliteWaitingRows::cell(const Value& value)
{
    const auto& held = value.held();
    if (const auto* text = std::get_if<std::string>(&held)) {
        return cell(std::string_view(*text));
    }
    if (const auto* whole = std::get_if<std::int64_t>(&held)) {
        return {.type = Cell::Type::Whole, .whole = *whole};
    }
    if (const auto* real = std::get_if<double>(&held)) {
        return {.type = Cell::Type::Real, .real = *real};
    }
    if (const auto* time = std::get_if<DateTime>(&held)) {
        return {.type = Cell::Type::Time, .time = *time};
    }
    return {};
}

SqliteWaitingRows::Cell SqliteWaitingRows::cell(const Token& literal)
{
    if (literal.kind == TokenKind::Text && !literal.doubled_quotes) {
        return cell(literal.text);
    }
    return cell(value_of(literal));
}

SqliteWaitingRows::Cell SqliteWaitingRows::cell(std::string_view text)
{
    const auto at = texts_.size();
    texts_.append(text);
    return {.type = Cell::Type::Text, .whole = static_cast<std::int64_t>(at), .size = text.size()};
}

bool SqliteWaitingRows::change(const Table& table, std::int64_t key, const RowChange& row)
{
    auto* const changed = this->row(table, key);
    if (changed == nullptr) {
        return false;
    }
    auto& waiting = waiting_in(table);
    auto& cells = waiting.cells;
    auto& kind = with_more(waiting, table, *changed->kind, row.columns);
    if (&kind != changed->kind) { // has more cells, which stand behind the others
        const auto old = changed->first_cell;
        const auto count = changed->kind->columns.size();
        *changed = {&kind, cells.size()};
        cells.resize(cells.size() + kind.columns.size());
        std::copy_n(cells.begin() + static_cast<std::ptrdiff_t>(old), count,
            cells.begin() + static_cast<std::ptrdiff_t>(changed->first_cell));
    }
    for (std::size_t i = 0; i < row.columns.size(); ++i) {
        const auto column = std::find_if(kind.columns.begin(), kind.columns.end(),
            [&](const std::string& each) { return same_column(each, row.columns[i]); });
        cells[changed->first_cell + static_cast<std::size_t>(column - kind.columns.begin())] =
            cell(row.values[i]);
    }
    return true;
}

bool SqliteWaitingRows::remove(const Table& table, std::int64_t key)
{
    auto* const removed = row(table, key);
    if (removed != nullptr) {
        removed->kind = nullptr;
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
            tables_.at(i).cells.clear();
        }
    }
    if (waiting_ == 0) {
        texts_.clear();
        times_.clear();
    }
    return code;
}

void SqliteWaitingRows::forget()
{
    for (auto& waiting : tables_) {
        waiting.rows.clear();
        waiting.cells.clear();
        waiting.last_key.reset();
    }
    waiting_ = 0;
    texts_.clear();
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
    int code = SQLITE_DONE;
    const auto first_key = *waiting.last_key - static_cast<std::int64_t>(waiting.rows.size()) + 1;
    for (auto& kind : waiting.kinds) {
        of_kind_.clear();
        for (std::size_t i = 0; i < waiting.rows.size(); ++i) {
            if (waiting.rows[i].kind == &kind) {
                of_kind_.emplace_back(first_key + static_cast<std::int64_t>(i), waiting.rows[i].first_cell);
            }
        }
        code = code == SQLITE_DONE ? write(waiting, kind) : code;
    }
    return code;
}

int SqliteWaitingRows::write(const Waiting& waiting, Kind& kind)
{
    int code = SQLITE_DONE;
    for (std::size_t done = 0; done < of_kind_.size() && code == SQLITE_DONE;) {
        std::size_t size = 0;
        while (kTogether.at(size) > of_kind_.size() - done) {
            ++size;
        }
        auto& statement = insert(kind, size);
        int parameter = 0;
        for (const auto end = done + kTogether.at(size); done < end; ++done) {
            const auto& [key, first] = of_kind_[done];
            bind(statement, ++parameter, {.type = Cell::Type::Whole, .whole = key});
            for (std::size_t i = 0; i < kind.columns.size(); ++i) {
                bind(statement, ++parameter, waiting.cells[first + i]);
            }
        }
        code = statement.step();
        statement.reset();
    }
    return code;
}

void SqliteWaitingRows::bind(SqliteStatement& statement, int parameter, const Cell& cell)
{
    switch (cell.type) {
    case Cell::Type::Null:
        statement.bind(parameter, Value{});
        break;
    case Cell::Type::Whole:
        statement.bind(parameter, Value(cell.whole));
        break;
    case Cell::Type::Real:
        statement.bind(parameter, Value(cell.real));
        break;
    case Cell::Type::Text:
        statement.bind(
            parameter, std::string_view(texts_).substr(static_cast<std::size_t>(cell.whole), cell.size));
        break;
    case Cell::Type::Time:
        statement.bind(parameter, text_of(cell.time));
        break;
    }
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
