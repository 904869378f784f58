#include "platform/odbc/OdbcTables.h"

#include "base/Text.h"

#include <algorithm>
#include <random>
#include <utility>

namespace qz::platform {

namespace {

/// A database may set up tables for minutes.
constexpr std::chrono::minutes kLongTime(30);

Value converted_to(ServerColumn::Kind kind, const Value& value)
{
    if (value.is_null()) {
        return value;
    }
    switch (kind) {
    case ServerColumn::Kind::Whole:
        return std::holds_alternative<std::int64_t>(value.held())
            ? value
            : Value(static_cast<std::int64_t>(value.number()));
    case ServerColumn::Kind::Real:
        return {value.number()};
    case ServerColumn::Kind::Date:
        return value.text().empty() ? Value() : Value(value.date());
    case ServerColumn::Kind::Text:
        break;
    }
    return {value.text()};
}

std::string_view type_name(ServerColumn::Kind kind)
{
    switch (kind) {
    case ServerColumn::Kind::Whole:
        return "bigint";
    case ServerColumn::Kind::Real:
        return "double precision";
    case ServerColumn::Kind::Date:
        return "timestamp";
    case ServerColumn::Kind::Text:
        break;
    }
    return "text";
}

/// A parameter that holds an array.
std::string array_of(ServerColumn::Kind kind)
{
    return "CAST(? AS " + std::string(type_name(kind)) + "[])";
}

std::string filled(std::string_view text, const Table& table)
{
    return replace_all(replace_all(text, "{key}", lower(table.key)), "{}", lower(table.name));
}

} // namespace

Step insert_step(const ServerDatabase& server, const Table& table, const std::vector<ServerColumn>& columns)
{
    std::string names;
    std::string values;
    std::string arrays;
    for (const auto& each : columns) {
        names += (names.empty() ? "" : ", ") + quoted_name(each.name);
        values += values.empty() ? "?" : ", ?";
        arrays += (arrays.empty() ? "" : ", ") + array_of(each.kind);
    }
    const auto into = "INSERT INTO " + quoted_name(table.name) + " (" + names + ") ";
    const auto head = into + "VALUES ";
    const auto row = "(" + values + ")";
    return {head + row, {},
        std::make_shared<const ManyRows>(server.takes_arrays
                ? ManyRows{{}, {}, {}, into + "SELECT * FROM unnest(" + arrays + ")"}
                : ManyRows{head, row, {}})};
}

const std::vector<ServerColumn>& OdbcTables::columns(std::string_view table) const
{
    const auto found = link_.facts().columns.find(lower(table));
    if (found == link_.facts().columns.end()) {
        throw database_error(DatabaseError::MissingTable,
            "no such table: " + std::string(table) + " (velto-server db init makes the tables)");
    }
    return found->second;
}

const ServerColumn& OdbcTables::column(const Table& table, std::string_view name) const
{
    const auto& all = columns(table.name);
    const auto found = std::find_if(all.begin(), all.end(),
        [&](const ServerColumn& each) { return equal_ignoring_case(each.name, name); });
    if (found == all.end()) {
        throw database_error(
            DatabaseError::Syntax, "no such column: " + std::string(table.name) + "." + std::string(name));
    }
    return *found;
}

RowChange OdbcTables::converted(const Table& table, const RowChange& row) const
{
    RowChange result;
    for (std::size_t i = 0; i < row.columns.size(); ++i) {
        const auto& target = column(table, row.columns[i]);
        result.columns.push_back(lower(target.name));
        result.values.push_back(converted_to(target.kind, row.values[i]));
    }
    return result;
}

Step OdbcTables::reserve_keys(const Table& table, std::size_t count) const
{
    columns(table.name);
    return {replace_all(filled(link_.server().reserve_keys, table), "{count}", std::to_string(count))};
}

Step OdbcTables::insert(const Table& table, const RowChange& row) const
{
    columns(table.name);
    if (row.columns.empty()) {
        return {"INSERT INTO " + quoted_name(table.name) + std::string(link_.server().default_values)};
    }
    std::vector<ServerColumn> targets;
    std::vector<Value> values;
    for (std::size_t i = 0; i < row.columns.size(); ++i) {
        const auto& target = targets.emplace_back(column(table, row.columns[i]));
        values.push_back(converted_to(target.kind, row.values[i]));
    }
    auto step = insert_step(link_.server(), table, targets);
    step.rows.push_back(std::move(values));
    return step;
}

Step OdbcTables::insert_with_key(const Table& table, const RowChange& row) const
{
    auto step = insert(table, row);
    if (const auto& server = link_.server(); !server.before_keys.empty()) {
        step.sql =
            filled(server.before_keys, table) + "; " + step.sql + "; " + filled(server.after_keys, table);
    }
    return step;
}

Step OdbcTables::insert_for_key(const Table& table, const RowChange& row) const
{
    auto step = insert(table, row);
    step.sql += replace_all(link_.server().key_at_end, "{}", quoted_name(table.key));
    return step;
}

Step OdbcTables::update(const Table& table, std::int64_t key, const RowChange& row) const
{
    std::string settings;
    std::vector<Value> parameters;
    std::vector<const ServerColumn*> targets;
    for (std::size_t i = 0; i < row.columns.size(); ++i) {
        const auto& target = column(table, row.columns[i]);
        settings += (settings.empty() ? "" : ", ") + quoted_name(target.name) + " = ?";
        parameters.push_back(converted_to(target.kind, row.values[i]));
        targets.push_back(&target);
    }
    parameters.emplace_back(key);
    return {"UPDATE " + quoted_name(table.name) + " SET " + settings + " WHERE " + quoted_name(table.key)
            + " = ?",
        {std::move(parameters)}, link_.server().takes_arrays ? many_updates(table, targets) : nullptr};
}

/// The key stands behind the values, as in the update of one row.
std::shared_ptr<const ManyRows> OdbcTables::many_updates(
    const Table& table, const std::vector<const ServerColumn*>& targets) const
{
    std::string settings;
    std::string arrays;
    std::string names;
    for (const auto* target : targets) {
        const auto name = quoted_name(target->name);
        settings += (settings.empty() ? "" : ", ") + name + " = waiting." + name;
        arrays += array_of(target->kind) + ", ";
        names += name + ", ";
    }
    return std::make_shared<const ManyRows>(ManyRows{{}, {}, {},
        "UPDATE " + quoted_name(table.name) + " SET " + settings + " FROM unnest(" + arrays
            + array_of(ServerColumn::Kind::Whole) + ") AS waiting (" + names + "waiting_key) WHERE "
            + quoted_name(table.name) + "." + quoted_name(table.key) + " = waiting.waiting_key"});
}

Step OdbcTables::remove(const Table& table, std::int64_t key) const
{
    columns(table.name);
    return {"DELETE FROM " + quoted_name(table.name) + " WHERE " + quoted_name(table.key) + " = ?",
        {{Value(key)}}};
}

Step OdbcTables::remove(const Table& table, const std::set<std::int64_t>& keys) const
{
    auto step = remove(table, *keys.begin());
    const auto head = step.sql.substr(0, step.sql.size() - std::string_view("= ?").size());
    step.many = std::make_shared<const ManyRows>(link_.server().takes_arrays
            ? ManyRows{{}, {}, {}, head + "= ANY(" + array_of(ServerColumn::Kind::Whole) + ")"}
            : ManyRows{head + "IN (", "?", ")"});
    step.rows.clear();
    for (const auto key : keys) {
        step.rows.push_back({Value(key)});
    }
    return step;
}

Step OdbcTables::count(const Table& table, std::int64_t key) const
{
    return {"SELECT COUNT(*) FROM " + quoted_name(table.name) + " WHERE " + quoted_name(table.key) + " = ?",
        {{Value(key)}}};
}

int OdbcTables::schema_version()
{
    return link_.facts().schema_version;
}

int OdbcTables::current_schema_version() const
{
    return static_cast<int>(link_.server().migrations.size());
}

void OdbcTables::make_schema()
{
    const auto read_version = [&] {
        const auto outcome = link_.ask({{"SELECT version FROM velto_schema"}});
        return outcome.failure || outcome.result.rows.empty() ? 0 : outcome.result.rows[0].at(0).integer();
    };
    auto version = read_version();
    if (version > current_schema_version()) {
        throw database_error(DatabaseError::Unspecified,
            "The database has schema version " + std::to_string(version)
                + ", but this program knows versions up to " + std::to_string(current_schema_version()));
    }
    // No transaction around them, for some servers commit with every such statement; each can be run again.
    for (; version < current_schema_version(); ++version) {
        for (const auto text : link_.server().migrations[static_cast<std::size_t>(version)]) {
            run({{std::string(text)}});
        }
        set_version(version + 1);
    }
    link_.look_again();
}

void OdbcTables::set_version(int version)
{
    if (version == 1 && link_.ask({{"SELECT version FROM velto_schema"}}).failure) {
        run({{"CREATE TABLE velto_schema (version int NOT NULL)"}});
    }
    run({{"DELETE FROM velto_schema"},
        {"INSERT INTO velto_schema (version) VALUES (?)", {{Value(version)}}}});
}

std::uint64_t OdbcTables::count_rows(const Table& table)
{
    const auto outcome = run({{"SELECT COUNT(*) FROM " + quoted_name(table.name)}});
    return static_cast<std::uint64_t>(outcome.result.rows.at(0).at(0).number());
}

ResultSet OdbcTables::read_rows(const Table& table, std::int64_t after, std::size_t count)
{
    const auto key = quoted_name(table.key);
    std::string names;
    for (const auto& each : columns(table.name)) {
        names += (names.empty() ? "" : ", ") + quoted_name(each.name);
    }
    return run({{"SELECT " + names + " FROM " + quoted_name(table.name) + " WHERE " + key + " > ? ORDER BY "
                       + key + " OFFSET 0 ROWS FETCH NEXT " + std::to_string(count) + " ROWS ONLY",
                   {{Value(after)}}}})
        .result;
}

void OdbcTables::write_rows(const Table& table, const ResultSet& rows)
{
    if (rows.rows.empty()) {
        return;
    }
    const auto& server = link_.server();
    Step together;
    for (const auto& values : rows.rows) {
        auto step = insert(table, {rows.columns, values});
        if (together.sql.empty()) {
            together = std::move(step);
        } else {
            together.rows.push_back(std::move(step.rows.front()));
        }
    }
    std::vector<Step> steps;
    if (!together_) {
        steps.push_back({std::string(server.begin)});
    }
    for (const auto text :
        {server.before_keys, std::string_view{}, server.after_keys, server.advance_counter}) {
        if (text.data() == nullptr) {
            steps.push_back(together);
        } else if (!text.empty()) {
            steps.push_back({filled(text, table)});
        }
    }
    if (!together_) {
        steps.push_back({std::string(server.commit)});
    }
    run(std::move(steps));
}

void OdbcTables::delete_rows(const Table& table)
{
    run({{"DELETE FROM " + quoted_name(table.name)}});
}

bool OdbcTables::begin()
{
    if (link_.facts().transactions) {
        run({{std::string(link_.server().begin)}});
        together_ = true;
    }
    return together_;
}

void OdbcTables::begin_reading()
{
    std::vector<Step> steps;
    for (const auto text : link_.server().begin_reading) {
        steps.push_back({std::string(text)});
    }
    run(std::move(steps));
    together_ = true;
}

void OdbcTables::commit()
{
    if (together_) {
        run({{std::string(link_.server().commit)}});
        together_ = false;
    }
}

void OdbcTables::roll_back() noexcept
{
    if (std::exchange(together_, false)) {
        try {
            link_.ask({{std::string(link_.server().rollback)}});
        } catch (...) { // the session is gone, and what it had begun with it
        }
    }
}

std::string OdbcTables::set_mark()
{
    std::random_device random;
    auto mark = "mark " + std::to_string(random()) + " " + std::to_string(random());
    run({{"INSERT INTO velto_changes (name, changes) VALUES (?, 0)", {{Value(mark)}}}});
    return mark;
}

/// A database without that table has no mark; what else goes wrong must not pass for an answer.
bool OdbcTables::has_mark(const std::string& mark)
{
    try {
        const auto found = run({{"SELECT COUNT(*) FROM velto_changes WHERE name = ?", {{Value(mark)}}}});
        return found.result.rows.at(0).at(0).number() != 0;
    } catch (const EngineError& error) {
        if (error.number() == number_of(DatabaseError::MissingTable)) {
            return false;
        }
        throw;
    }
}

void OdbcTables::clear_mark(const std::string& mark) noexcept
{
    try {
        link_.ask({{"DELETE FROM velto_changes WHERE name = ?", {{Value(mark)}}}});
    } catch (...) { // a mark that stays behind disturbs nobody
    }
}

Outcome OdbcTables::run(std::vector<Step> steps)
{
    try {
        auto outcome = link_.ask(std::move(steps), kLongTime);
        if (outcome.failure) {
            const auto failure = *outcome.failure;
            together_ = false;
            link_.ask({{std::string(link_.server().rollback)}});
            throw to_error(failure);
        }
        return outcome;
    } catch (const LinkLost& lost) {
        together_ = false;
        throw database_error(lost.kind, lost.reason);
    }
}

} // namespace qz::platform
