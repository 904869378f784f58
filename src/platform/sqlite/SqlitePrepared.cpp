#include "platform/sqlite/SqlitePrepared.h"

#include "base/Text.h"
#include "platform/database/Dialect.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

namespace qz::platform {

namespace {

/// The waiting tables that a text speaks of.
SqliteWaitingRows::Tables tables_in(std::string_view sql)
{
    SqliteWaitingRows::Tables tables = 0;
    std::size_t end = 0;
    const auto is_letter = [&](std::size_t at) {
        return std::isalpha(static_cast<unsigned char>(sql[at])) != 0;
    };
    for (std::size_t start = 0; start < sql.size(); start = end + 1) {
        for (end = start; end < sql.size() && is_letter(end); ++end) { }
        tables |= SqliteWaitingRows::bit_of(lower(sql.substr(start, end - start)));
    }
    return tables;
}

/// The hole of the number that messages are found with; none when the statement does not.
std::optional<std::size_t> number_hole_of(const Translation& translation)
{
    const auto comparison = translation.sql.find("messagenumbers.MsgID = ?");
    if (comparison == std::string::npos) {
        return std::nullopt;
    }
    const auto end = translation.sql.begin() + static_cast<std::ptrdiff_t>(comparison);
    return translation.holes[static_cast<std::size_t>(std::count(translation.sql.begin(), end, '?'))];
}

/// The columns that an INSERT names, whose values are the holes in the same order; none for another
/// statement.
std::vector<std::string> inserted_columns(std::string_view text)
{
    std::vector<std::string> words;
    Tokenizer tokens(text, Holes::Yes);
    for (auto token = tokens.next(); token.kind != TokenKind::End; token = tokens.next()) {
        if (token.kind == TokenKind::Word) {
            words.emplace_back(token.text);
        }
    }
    constexpr std::size_t kBefore = 3; // INSERT INTO table
    if (words.size() <= kBefore + 1 || lower(words.front()) != "insert" || lower(words.back()) != "values") {
        return {};
    }
    return {words.begin() + kBefore, words.end() - 1};
}

Translation translation_of(Statement statement)
{
    if (!statement.run_embedded_as.empty()) {
        statement.run_as = statement.run_embedded_as;
    }
    return translate(statement, kSqliteDialect);
}

} // namespace

SqlitePrepared::SqlitePrepared(SqliteDatabase& database, const Shape& shape)
    : SqlitePrepared(database, shape, translation_of(shape.statement))
{
}

SqlitePrepared::SqlitePrepared(SqliteDatabase& database, const Shape& shape, Translation translation)
    : statement(database, translation.sql), hidden_key(translation.hidden_key),
      asks_activity(translation.sql.find("useractivity") != std::string::npos),
      tables(shape.statement.of_stored_rows ? 0 : tables_in(asks_activity ? "log" : translation.sql)),
      number_hole_(number_hole_of(translation))
{
    holes_ = std::move(translation.holes);
    const auto* table = shape.statement.table;
    if (table != nullptr && SqliteWaitingRows::bit_of(table->name) != 0) {
        waiting_columns = inserted_columns(shape.statement.text);
    }
}

void SqlitePrepared::bind(const Match& match)
{
    for (std::size_t i = 0; i < holes_.size(); ++i) {
        statement.bind(static_cast<int>(i) + 1, match.values[holes_[i]]);
    }
}

std::optional<Value> SqlitePrepared::number_asked_for(const Match& match) const
{
    return number_hole_ ? std::optional(value_of(match.values[*number_hole_])) : std::nullopt;
}

} // namespace qz::platform
