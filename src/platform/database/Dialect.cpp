#include "platform/database/Dialect.h"

#include "base/Text.h"
#include "platform/database/Tokenizer.h"

#include <algorithm>
#include <array>
#include <optional>

namespace qz::platform {

namespace {

/// The log listing's column has no name in its text, yet is read by this one.
constexpr std::string_view kUnnamedColumn = "MyLog";

struct Piece {
    Token token;
    std::size_t hole = 0; // of a hole: its number in the text
};
using Pieces = std::vector<Piece>;

bool is_hole(const Token& token)
{
    return token.kind == TokenKind::Hole || (token.kind == TokenKind::Text && token.text == "{}");
}

bool is_word(const Piece& piece, std::string_view word)
{
    return piece.token.kind == TokenKind::Word && !piece.token.bracketed
        && equal_ignoring_case(piece.token.text, word);
}

bool is_symbol(const Piece& piece, std::string_view symbol)
{
    return piece.token.kind == TokenKind::Symbol && piece.token.text == symbol;
}

Piece word(std::string_view text)
{
    return {{TokenKind::Word, text}};
}

Piece symbol(std::string_view text)
{
    return {{TokenKind::Symbol, text}};
}

Pieces pieces_of(std::string_view text)
{
    Pieces pieces;
    std::size_t holes = 0;
    Tokenizer tokens(text, Holes::Yes);
    for (auto token = tokens.next(); token.kind != TokenKind::End; token = tokens.next()) {
        pieces.push_back({token, is_hole(token) ? holes++ : 0});
    }
    if (!pieces.empty() && is_symbol(pieces.back(), ";")) {
        pieces.pop_back();
    }
    return pieces;
}

/// Position of the first such word outside parentheses, or the end.
Pieces::iterator find_outer(Pieces& pieces, std::string_view text)
{
    int depth = 0;
    return std::find_if(pieces.begin(), pieces.end(), [&](const Piece& piece) {
        depth += is_symbol(piece, "(") ? 1 : is_symbol(piece, ")") ? -1 : 0;
        return depth == 0 && is_word(piece, text);
    });
}

/// Position of the parenthesis that closes the one at `open`.
Pieces::iterator closing(Pieces& pieces, Pieces::iterator open)
{
    int depth = 0;
    return std::find_if(open, pieces.end(), [&](const Piece& piece) {
        depth += is_symbol(piece, "(") ? 1 : is_symbol(piece, ")") ? -1 : 0;
        return depth == 0;
    });
}

/// SELECT TOP n ... becomes SELECT ... LIMIT n; TOP 100 PERCENT limits nothing and goes.
void move_row_limit(Pieces& pieces)
{
    const auto top = find_outer(pieces, "TOP");
    if (top == pieces.end()) {
        return;
    }
    const bool percent = top + 2 != pieces.end() && is_word(top[2], "PERCENT");
    const Piece count = top[1];
    pieces.erase(top, top + (percent ? 3 : 2));
    if (!percent) {
        pieces.push_back(word("LIMIT"));
        pieces.push_back(count);
    }
}

/// SELECT (expression) FROM ... gets the name by which the column is read.
void name_unnamed_column(Pieces& pieces)
{
    if (pieces.size() > 1 && is_word(pieces[0], "SELECT") && is_symbol(pieces[1], "(")) {
        const auto end = closing(pieces, pieces.begin() + 1);
        const std::array name{word("AS"), word(kUnnamedColumn)};
        pieces.insert(end + 1, name.begin(), name.end());
    }
}

/// UPDATE t SET t.a = ..., t.b = ... loses the "t." in front of what is set.
void unqualify_set(Pieces& pieces)
{
    auto at = find_outer(pieces, "SET");
    while (at != pieces.end() && !is_word(*at, "WHERE")) {
        if ((is_word(*at, "SET") || is_symbol(*at, ",")) && is_symbol(at[2], ".")) {
            at = pieces.erase(at + 1, at + 3);
        } else {
            ++at;
        }
    }
}

/// Adds the key to the columns of a query whose rows may be edited.
/// @return false when it stands among them anyhow.
bool add_key(Pieces& pieces, const Table& table)
{
    if (!is_word(pieces.front(), "SELECT")) {
        return false;
    }
    const auto from = find_outer(pieces, "FROM");
    const bool has_key = std::any_of(pieces.begin(), from, [&](const Piece& piece) {
        return is_symbol(piece, "*") || equal_ignoring_case(piece.token.text, table.key);
    });
    if (has_key) {
        return false;
    }
    const std::array key{symbol(","), word(table.key)};
    pieces.insert(from, key.begin(), key.end());
    return true;
}

std::string_view translated_function(std::string_view name, const Dialect& dialect)
{
    const auto found = std::find_if(dialect.functions.begin(), dialect.functions.end(),
        [&](const FunctionName& function) { return function.name == lower(name); });
    return found == dialect.functions.end() ? name : found->translated;
}

void write(const Piece& piece, bool before_parenthesis, const Dialect& dialect, Translation& result)
{
    const auto& token = piece.token;
    if (is_hole(token)) {
        result.sql += '?';
        result.holes.push_back(piece.hole);
    } else if (token.kind == TokenKind::Text) {
        result.sql.append("'").append(token.text).append("'");
    } else if (token.bracketed) {
        result.sql.append(dialect.name_open).append(token.text).append(dialect.name_close);
    } else if (token.kind == TokenKind::Word && before_parenthesis) {
        result.sql += translated_function(token.text, dialect);
    } else if (is_symbol(piece, "+")) {
        result.sql += dialect.joins_texts;
    } else {
        result.sql += token.text;
    }
}

constexpr std::array kSqliteFunctions{
    FunctionName{"left", "\"Left\""}, // the bare word begins a join
    FunctionName{"last", "MAX"},
    // The built-in functions of these names mean something else.
    FunctionName{"date", "Today"},
    FunctionName{"format", "FormatDate"},
};

} // namespace

const Dialect kSqliteDialect{"[", "]", "||", kSqliteFunctions};

Translation translate(const Statement& statement, const Dialect& dialect)
{
    auto pieces = pieces_of(statement.run_as.empty() ? statement.text : statement.run_as);
    Translation result;
    move_row_limit(pieces);
    name_unnamed_column(pieces);
    unqualify_set(pieces);
    result.hidden_key = statement.table != nullptr && add_key(pieces, *statement.table);
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const bool glued = i == 0 || is_symbol(pieces[i], ".") || is_symbol(pieces[i - 1], ".");
        if (!glued) {
            result.sql += ' ';
        }
        write(pieces[i], i + 1 < pieces.size() && is_symbol(pieces[i + 1], "("), dialect, result);
    }
    return result;
}

} // namespace qz::platform
