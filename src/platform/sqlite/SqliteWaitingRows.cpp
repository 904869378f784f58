#include "platform/sqlite/SqliteWaitingRows.h"

#include "base/Text.h"

#include <algorithm>
#include <bit>
#include <utility>

#include <sqlite3.h>

namespace qz::platform {

namespace {

constexpr std::array<Table, 4> kTables{
    {{"log", "IDLog"}, {"messages", "IDMessage"}, {"queue", "IDQueue"}, {"queuetext", "IDQueueText"}}};

constexpr std::size_t kLogPosition = 0;

bool same_column(const std::string& left, const std::string& right)
{
    return left == right || equal_ignoring_case(left, right);
}

} // namespace

SqliteWaitingRows::SqliteWaitingRows(SqliteDatabase& database, SqliteEdits& edits, const Clock& clock)
    : database_(database), edits_(edits), clock_(clock)
{
}

SqliteWaitingRows::Tables SqliteWaitingRows::bit_of(std::string_view table)
{
    for (std::size_t i = 0; i < kTables.size(); ++i) {
        if (kTables.at(i).name == table) {
            return 1U << i;
        }
    }
    return 0;
}

bool SqliteWaitingRows::full() const
{
    constexpr std::size_t kMostBytes = std::size_t{1} << 20U;
    constexpr std::size_t kMostCells = 100'000;
    return cells_.size() > kMostBytes
        || std::any_of(tables_.begin(), tables_.end(),
            [](const Waiting& waiting) { return waiting.cells.size() + waiting.edits.size() > kMostCells; });
}

std::int64_t SqliteWaitingRows::add(const Table& table, const RowChange& row)
{
    auto& waiting = waiting_in(table);
    auto& kind = kind_for(waiting, table, row.columns);
    const auto key = last_key(waiting, table) + 1;
    waiting.rows.push_back({&kind, waiting.cells.size()});
    for (const auto& value : row.values) {
        waiting.cells.push_back(cells_.cell(value));
    }
    for (auto i = row.columns.size(); i < kind.columns.size(); ++i) {
        waiting.cells.push_back(SqliteCells::cell(clock_.now()));
    }
    waiting.last_key = key;
    waiting.known_from = waiting.known_from.value_or(key);
    waiting_ |= bit_of(waiting);
    return key;
}

bool SqliteWaitingRows::change(const Table& table, std::int64_t key, const RowChange& row)
{
    auto& waiting = waiting_in(table);
    const bool moves = std::any_of(row.columns.begin(), row.columns.end(),
        [&](const std::string& column) { return equal_ignoring_case(column, table.key); });
    if (moves) {
        return false;
    }
    if (auto* const changed = this->row(waiting, key)) {
        change(waiting, table, *changed, row);
        return true;
    }
    if (!is_stored(waiting, key) || !waiting.edits.change(edits_, table, key, row, cells_)) {
        return false;
    }
    waiting_ |= bit_of(waiting);
    return true;
}

void SqliteWaitingRows::change(Waiting& waiting, const Table& table, Row& row, const RowChange& change)
{
    auto& cells = waiting.cells;
    const auto& wider = this->wider(waiting, table, *row.kind, change.columns);
    if (wider.kind != row.kind) { // has more cells, which stand behind the others
        const auto old = row.first_cell;
        const auto count = row.kind->columns.size();
        row = {wider.kind, cells.size()};
        cells.resize(cells.size() + wider.kind->columns.size());
        std::copy_n(cells.begin() + static_cast<std::ptrdiff_t>(old), count,
            cells.begin() + static_cast<std::ptrdiff_t>(row.first_cell));
    }
    for (std::size_t i = 0; i < change.values.size(); ++i) {
        cells[row.first_cell + wider.positions[i]] = cells_.cell(change.values[i]);
    }
}

bool SqliteWaitingRows::remove(const Table& table, std::int64_t key)
{
    auto& waiting = waiting_in(table);
    if (auto* const removed = row(waiting, key)) {
        removed->kind = nullptr;
        return true;
    }
    if (!is_stored(waiting, key)) {
        return false;
    }
    waiting.edits.remove(key);
    waiting_ |= bit_of(waiting);
    return true;
}

void SqliteWaitingRows::write(Tables tables)
{
    const bool too_much = full();
    for (std::size_t i = 0; i < tables_.size(); ++i) {
        if ((tables & waiting_ & (1U << i)) != 0) {
            write_table(i);
        }
    }
    if (written_log_.empty() || too_much) {
        forget_log();
    }
}

/// Nothing waits for the table afterwards, also when it could not be written.
void SqliteWaitingRows::write_table(std::size_t position)
{
    struct Release {
        Waiting& waiting;
        bool keeps_cells;
        ~Release()
        {
            waiting.rows.clear();
            waiting.edits.forget();
            if (!keeps_cells) {
                waiting.cells.clear();
            }
        }
    };
    waiting_ &= ~(1U << position);
    auto& waiting = tables_.at(position);
    const auto& table = kTables.at(position);
    const bool is_log = position == kLogPosition;
    const Release release{waiting, is_log};
    if (is_log) { // its rows survive a rollback
        written_log_.insert(written_log_.end(), waiting.rows.begin(), waiting.rows.end());
    }
    const auto first_key = waiting.last_key.value_or(0) - static_cast<std::int64_t>(waiting.rows.size()) + 1;
    for (auto& kind : waiting.kinds) {
        of_kind_.clear();
        for (std::size_t i = 0; i < waiting.rows.size(); ++i) {
            if (waiting.rows[i].kind == &kind) {
                of_kind_.emplace_back(first_key + static_cast<std::int64_t>(i), waiting.rows[i].first_cell);
            }
        }
        write(waiting, table, kind);
    }
    waiting.edits.write(edits_, table, cells_);
}

void SqliteWaitingRows::turn_stored()
{
    if (!written_log_.empty()) {
        forget_log();
    }
}

/// Lets go of the cells of the log's rows, none of which waits.
void SqliteWaitingRows::forget_log()
{
    written_log_.clear();
    if ((waiting_ & (1U << kLogPosition)) == 0) {
        tables_.at(kLogPosition).cells.clear();
    }
    if (waiting_ == 0) {
        cells_.clear();
    }
}

std::vector<LogRow> SqliteWaitingRows::take_log()
{
    const auto& waiting = tables_.at(kLogPosition);
    std::vector<LogRow> rows;
    for (const std::vector<Row>* some : {&std::as_const(written_log_), &waiting.rows}) {
        for (const auto& row : *some) {
            if (row.kind != nullptr) {
                rows.push_back(log_row(waiting, row));
            }
        }
    }
    return rows;
}

LogRow SqliteWaitingRows::log_row(const Waiting& waiting, const Row& row) const
{
    RowChange change{row.kind->columns, {}};
    for (std::size_t i = 0; i < change.columns.size(); ++i) {
        change.values.push_back(cells_.value(waiting.cells[row.first_cell + i]));
    }
    return LogBacklog::row_of(change, clock_.now());
}

void SqliteWaitingRows::forget()
{
    written_log_.clear();
    for (auto& waiting : tables_) {
        waiting.rows.clear();
        waiting.cells.clear();
        waiting.edits.forget();
    }
    forget_keys();
    waiting_ = 0;
    cells_.clear();
}

void SqliteWaitingRows::forget_keys()
{
    for (auto& waiting : tables_) {
        waiting.last_key.reset();
        waiting.known_from.reset();
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
    auto all = columns;
    for (const auto& stamped : columns_->stamped(table)) {
        if (std::none_of(columns.begin(), columns.end(),
                [&](const std::string& column) { return same_column(column, stamped); })) {
            all.push_back(stamped);
        }
    }
    for (const auto& column : all) {
        columns_->require(table, column);
    }
    return waiting.kinds.emplace_back(Kind{std::move(all), columns.size(), {}, {}, {}});
}

/// The kind that has these columns besides its own.
const SqliteWaitingRows::Wider& SqliteWaitingRows::wider(
    Waiting& waiting, const Table& table, Kind& kind, const std::vector<std::string>& columns)
{
    for (const auto& known : kind.wider) {
        if (known.columns == columns) {
            return known;
        }
    }
    auto all = kind.columns;
    std::vector<std::size_t> positions;
    for (const auto& column : columns) {
        const auto found = std::find_if(
            all.begin(), all.end(), [&](const std::string& each) { return same_column(each, column); });
        positions.push_back(static_cast<std::size_t>(found - all.begin()));
        if (found == all.end()) {
            all.push_back(column);
        }
    }
    return kind.wider.emplace_back(Wider{columns, &kind_for(waiting, table, all), std::move(positions)});
}

SqliteWaitingRows::Tables SqliteWaitingRows::bit_of(const Waiting& waiting) const
{
    return 1U << static_cast<unsigned>(&waiting - tables_.data());
}

/// The greatest key that the table has ever had, as the database counts it.
std::int64_t SqliteWaitingRows::last_key(Waiting& waiting, const Table& table)
{
    if (!waiting.last_key) {
        waiting.last_stored = static_cast<std::int64_t>(
            database_
                .read("SELECT max(ifnull((SELECT max(" + bracketed(table.key) + ") FROM "
                    + bracketed(table.name)
                    + "), 0), ifnull((SELECT max(seq) FROM sqlite_sequence WHERE name = '"
                    + std::string(table.name) + "' COLLATE NOCASE), 0))")
                .number());
        waiting.last_key = waiting.last_stored;
    }
    return *waiting.last_key;
}

SqliteWaitingRows::Row* SqliteWaitingRows::row(Waiting& waiting, std::int64_t key)
{
    if (waiting.rows.empty()) {
        return nullptr;
    }
    const auto back = *waiting.last_key - key; // how many rows stand behind it
    if (back < 0 || back >= static_cast<std::int64_t>(waiting.rows.size())) {
        return nullptr;
    }
    auto& found = waiting.rows[waiting.rows.size() - 1 - static_cast<std::size_t>(back)];
    return found.kind == nullptr ? nullptr : &found;
}

bool SqliteWaitingRows::is_stored(const Waiting& waiting, std::int64_t key)
{
    return waiting.known_from && key >= *waiting.known_from
        && key <= *waiting.last_key - static_cast<std::int64_t>(waiting.rows.size());
}

void SqliteWaitingRows::write(Waiting& waiting, const Table& table, Kind& kind)
{
    for (std::size_t done = 0; done < of_kind_.size();) {
        std::size_t size = 0;
        while (kTogether.at(size) > of_kind_.size() - done) {
            ++size;
        }
        insert(waiting, table, kind, size, done);
        done += kTogether.at(size);
    }
}

/// Inserts kTogether[size] rows of a kind. The database gives rows their keys at less cost than it takes
/// them, so it does where they come out the same.
void SqliteWaitingRows::insert(
    Waiting& waiting, const Table& table, Kind& kind, std::size_t size, std::size_t first)
{
    const auto count = kTogether.at(size);
    const auto first_key = of_kind_[first].first;
    const auto last_key = of_kind_[first + count - 1].first;
    const bool with_keys =
        first_key != waiting.last_stored + 1 || last_key - first_key != static_cast<std::int64_t>(count) - 1;
    auto& statement = this->statement(table, kind, size, with_keys);
    int parameter = 0;
    for (auto row = first; row < first + count; ++row) {
        const auto& [key, first_cell] = of_kind_[row];
        if (with_keys) {
            statement.bind(++parameter, Value(key));
        }
        for (std::size_t i = 0; i < kind.columns.size(); ++i) {
            cells_.bind(statement, ++parameter, waiting.cells[first_cell + i]);
        }
    }
    statement.run();
    waiting.last_stored = (std::max)(waiting.last_stored, last_key);
    if (database_.last_key() != last_key) {
        throw database_.error(SQLITE_CONSTRAINT_ROWID);
    }
}

SqliteStatement& SqliteWaitingRows::statement(
    const Table& table, Kind& kind, std::size_t size, bool with_keys)
{
    auto& statement = (with_keys ? kind.inserts_with_keys : kind.inserts).at(size);
    if (!statement) {
        std::string names = with_keys ? bracketed(table.key) : "";
        std::string values = with_keys ? "?" : "";
        for (const auto& column : kind.columns) {
            names += (names.empty() ? "" : ", ") + bracketed(column);
            values += values.empty() ? "?" : ", ?";
        }
        const auto one = "INSERT INTO " + bracketed(table.name) + " (" + names + ") VALUES (" + values + ")";
        auto text = one;
        for (std::size_t i = 1; i < kTogether.at(size); ++i) {
            text += ", (" + values + ")";
        }
        statement = std::make_unique<SqliteStatement>(
            database_, text, SqliteStatement::Rows{one, kTogether.at(size)});
    }
    return *statement;
}

} // namespace qz::platform
