#include "platform/sqlite/SqliteCells.h"

#include "platform/database/Shape.h"

#include <algorithm>
#include <cstddef>

namespace qz::platform {

SqliteCell SqliteCells::cell(const Value& value)
{
    const auto& held = value.held();
    if (const auto* text = std::get_if<std::string>(&held)) {
        return cell(std::string_view(*text));
    }
    if (const auto* whole = std::get_if<std::int64_t>(&held)) {
        return {.type = SqliteCell::Type::Whole, .whole = *whole};
    }
    if (const auto* real = std::get_if<double>(&held)) {
        return {.type = SqliteCell::Type::Real, .real = *real};
    }
    if (const auto* time = std::get_if<DateTime>(&held)) {
        return cell(*time);
    }
    return {};
}

SqliteCell SqliteCells::cell(const Token& literal)
{
    if (literal.kind == TokenKind::Text && !literal.doubled_quotes) {
        return cell(literal.text);
    }
    return cell(value_of(literal));
}

SqliteCell SqliteCells::cell(std::string_view text)
{
    const auto at = texts_.size();
    texts_.append(text);
    return {.type = SqliteCell::Type::Text, .whole = static_cast<std::int64_t>(at), .size = text.size()};
}

bool SqliteCells::same(const SqliteCell& left, const SqliteCell& right) const
{
    if (left.type != right.type) {
        return false;
    }
    switch (left.type) {
    case SqliteCell::Type::Null:
        return true;
    case SqliteCell::Type::Whole:
        return left.whole == right.whole;
    case SqliteCell::Type::Real:
        return left.real == right.real;
    case SqliteCell::Type::Text:
        return text(left) == text(right);
    case SqliteCell::Type::Time:
        return left.time == right.time;
    }
    return false;
}

void SqliteCells::bind(SqliteStatement& statement, int parameter, const SqliteCell& cell)
{
    switch (cell.type) {
    case SqliteCell::Type::Null:
        statement.bind(parameter, Value{});
        break;
    case SqliteCell::Type::Whole:
        statement.bind(parameter, Value(cell.whole));
        break;
    case SqliteCell::Type::Real:
        statement.bind(parameter, Value(cell.real));
        break;
    case SqliteCell::Type::Text:
        statement.bind(parameter, text(cell));
        break;
    case SqliteCell::Type::Time:
        statement.bind(parameter, text_of(cell.time));
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
