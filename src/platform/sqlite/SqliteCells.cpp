#include "platform/sqlite/SqliteCells.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace qz::platform {

SqliteCell SqliteCells::cell(const Value& value)
{
    const auto& held = value.held();
    if (const auto* text = std::get_if<std::string>(&held)) {
        return cell(std::string_view(*text));
    }
    if (const auto* whole = std::get_if<std::int64_t>(&held)) {
        return {.type = SqliteCell::Type::Whole, .content = *whole};
    }
    if (const auto* real = std::get_if<double>(&held)) {
        return {.type = SqliteCell::Type::Real, .content = std::bit_cast<std::int64_t>(*real)};
    }
    if (const auto* time = std::get_if<DateTime>(&held)) {
        return cell(*time);
    }
    return {};
}

SqliteCell SqliteCells::cell(std::string_view text)
{
    const auto at = texts_.size();
    texts_.append(text);
    return {.type = SqliteCell::Type::Text,
        .size = static_cast<std::uint32_t>(text.size()),
        .content = static_cast<std::int64_t>(at)};
}

SqliteCell SqliteCells::cell(DateTime time)
{
    return {.type = SqliteCell::Type::Time, .content = std::bit_cast<std::int64_t>(time)};
}

Value SqliteCells::value(const SqliteCell& cell) const
{
    switch (cell.type) {
    case SqliteCell::Type::Null:
        break;
    case SqliteCell::Type::Whole:
        return {cell.content};
    case SqliteCell::Type::Real:
        return {std::bit_cast<double>(cell.content)};
    case SqliteCell::Type::Text:
        return {std::string(text(cell))};
    case SqliteCell::Type::Time:
        return {std::bit_cast<DateTime>(cell.content)};
    }
    return {};
}

bool SqliteCells::same(const SqliteCell& left, const SqliteCell& right) const
{
    if (left.type != right.type) {
        return false;
    }
    return left.type == SqliteCell::Type::Text ? text(left) == text(right) : left.content == right.content;
}

void SqliteCells::bind(SqliteStatement& statement, int parameter, const SqliteCell& cell)
{
    switch (cell.type) {
    case SqliteCell::Type::Null:
        statement.bind(parameter, Value{});
        break;
    case SqliteCell::Type::Whole:
        statement.bind(parameter, Value(cell.content));
        break;
    case SqliteCell::Type::Real:
        statement.bind(parameter, Value(std::bit_cast<double>(cell.content)));
        break;
    case SqliteCell::Type::Text:
        statement.bind(parameter, text(cell));
        break;
    case SqliteCell::Type::Time:
        statement.bind(parameter, text_of(std::bit_cast<DateTime>(cell.content)));
        break;
    }
}

void SqliteCells::clear()
{
    texts_.clear();
    times_.clear();
}

/// A turn has few different times, and the same again and again.
std::string_view SqliteCells::text_of(DateTime time)
{
    constexpr std::ptrdiff_t kLatest = 8;
    const auto end = times_.rbegin() + (std::min)(kLatest, static_cast<std::ptrdiff_t>(times_.size()));
    const auto known =
        std::find_if(times_.rbegin(), end, [&](const auto& each) { return each.first == time; });
    return known == end ? times_.emplace_back(time, time.text()).second : known->second;
}

} // namespace qz::platform
