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

/// SELECT TOP n ... becomes SELECT TOP (n) ..., or SELECT ... LIMIT n; TOP 100 PERCENT limits nothing and
/// goes.
void place_row_limit(Pieces& pieces, RowLimit place)
{
    const auto top = find_outer(pieces, "TOP");
    if (top == pieces.end()) {
        return;
    }
    const bool percent = top + 2 != pieces.end() && is_word(top[2], "PERCENT");
    const Piece count = top[1];
    if (!percent && place == RowLimit::Top) {
        pieces.insert(top + 2, symbol(")")); // first, or it would move the place of the other
        pieces.insert(find_outer(pieces, "TOP") + 1, symbol("("));
        return;
    }
    pieces.erase(top, top + (percent ? 3 : 2));
    if (!percent) {
        pieces.push_back(word("LIMIT"));
        pieces.push_back(count);
    }
}

/// SELECT (expression) FROM ..., with or without TOP (n), gets the name by which the column is read.
void name_unnamed_column(Pieces& pieces)
{
    const std::ptrdiff_t first = pieces.size() > 5 && is_word(pieces[1], "TOP") ? 5 : 1;
    if (pieces.size() > 5 && is_word(pieces[0], "SELECT")
        && is_symbol(pieces[static_cast<std::size_t>(first)], "(")) {
        const auto end = closing(pieces, pieces.begin() + first);
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

const FunctionRule* rule_for(const Piece& piece, const Dialect& dialect)
{
    if (piece.token.kind != TokenKind::Word || piece.token.bracketed) {
        return nullptr;
    }
    const auto found = std::find_if(dialect.functions.begin(), dialect.functions.end(),
        [&](const FunctionRule& rule) { return rule.name == lower(piece.token.text); });
    return found == dialect.functions.end() ? nullptr : &*found;
}

/// Writes pieces in the manner of a dialect.
class Writer {
public:
    Writer(const Dialect& dialect, Translation& result) : dialect_(dialect), result_(result) { }

    void write(std::span<const Piece> pieces)
    {
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            const auto& piece = pieces[i];
            const bool glued = i == 0 || is_symbol(piece, ".") || is_symbol(pieces[i - 1], ".");
            if (!glued) {
                result_.sql += ' ';
            }
            const bool call = i + 1 < pieces.size() && is_symbol(pieces[i + 1], "(");
            if (const auto* rule = call ? rule_for(piece, dialect_) : nullptr) {
                i += write_call(*rule, pieces.subspan(i + 1));
            } else {
                write(piece);
            }
        }
    }

private:
    void write(const Piece& piece)
    {
        const auto& token = piece.token;
        if (is_hole(token)) {
            result_.sql += '?';
            result_.holes.push_back(piece.hole);
        } else if (token.kind == TokenKind::Text) {
            result_.sql.append("'").append(token.text).append("'");
        } else if (token.bracketed) {
            result_.sql += quoted_name(token.text, dialect_);
        } else if (is_symbol(piece, "+")) {
            result_.sql += dialect_.joins_texts;
        } else if (token.kind == TokenKind::Word && dialect_.name_case == NameCase::Lower) {
            result_.sql += lower(token.text);
        } else {
            result_.sql += token.text;
        }
    }

    /// @param pieces  from the opening parenthesis on.
    /// @return how many pieces the arguments take, with both parentheses.
    std::size_t write_call(const FunctionRule& rule, std::span<const Piece> pieces)
    {
        std::vector<std::span<const Piece>> arguments;
        int depth = 0;
        std::size_t begin = 1;
        std::size_t end = 0;
        for (; end == 0 || depth > 0; ++end) {
            depth += is_symbol(pieces[end], "(") ? 1 : is_symbol(pieces[end], ")") ? -1 : 0;
            if (depth == 0 || (depth == 1 && is_symbol(pieces[end], ","))) {
                arguments.push_back(pieces.subspan(begin, end - begin));
                begin = end + 1;
            }
        }
        for (std::size_t i = 0; i < rule.call.size(); ++i) {
            if (rule.call[i] == '$') {
                write(arguments.at(static_cast<std::size_t>(rule.call[++i] - '1')));
            } else {
                result_.sql += rule.call[i];
            }
        }
        return end;
    }

    const Dialect& dialect_;
    Translation& result_;
};

constexpr std::array kSqliteFunctions{
    FunctionRule{"left", "\"Left\" ($1, $2)"}, // the bare word begins a join
    FunctionRule{"last", "MAX($1)"},
    // The built-in functions of these names mean something else.
    FunctionRule{"date", "Today()"},
    FunctionRule{"format", "FormatDate($1, $2)"},
};

// Dates are only compared by the day, so the text that Format makes on the way is left out everywhere else.

constexpr std::array kPostgreSqlFunctions{
    FunctionRule{"last", "MAX($1)"},
    FunctionRule{"len", "char_length($1)"},
    FunctionRule{"date", "CURRENT_DATE"},
    FunctionRule{"format", "CAST($1 AS date)"},
    FunctionRule{"datediff", "(CAST($3 AS date) - CAST($2 AS date))"},
    // Positions are not found in a text whose collation ignores case.
    FunctionRule{"instr", "strpos(lower($1 COLLATE \"C\"), lower($2))"},
};

constexpr std::array kMariaDbFunctions{
    FunctionRule{"last", "MAX($1)"},
    FunctionRule{"len", "CHAR_LENGTH($1)"},
    FunctionRule{"date", "CURDATE()"},
    FunctionRule{"format", "DATE($1)"},
    FunctionRule{"datediff", "DATEDIFF($3, $2)"},
};

constexpr std::array kSqlServerFunctions{
    FunctionRule{"last", "MAX($1)"},
    FunctionRule{"date", "CAST(GETDATE() AS date)"},
    FunctionRule{"format", "CAST($1 AS date)"},
    FunctionRule{"datediff", "DATEDIFF(day, $2, $3)"},
    FunctionRule{"instr", "CHARINDEX($2, $1)"},
};

} // namespace

const Dialect kSqliteDialect{"[", "]", NameCase::AsWritten, "||", RowLimit::Limit, kSqliteFunctions};
const Dialect kPostgreSqlDialect{"\"", "\"", NameCase::Lower, "||", RowLimit::Limit, kPostgreSqlFunctions};
const Dialect kMariaDbDialect{"`", "`", NameCase::Lower, "||", RowLimit::Limit, kMariaDbFunctions};
const Dialect kSqlServerDialect{"[", "]", NameCase::AsWritten, "+", RowLimit::Top, kSqlServerFunctions};

std::string quoted_name(std::string_view name, const Dialect& dialect)
{
    std::string quoted(dialect.name_open);
    quoted += dialect.name_case == NameCase::Lower ? lower(name) : std::string(name);
    return quoted.append(dialect.name_close);
}

Translation translate(const Statement& statement, const Dialect& dialect)
{
    auto pieces = pieces_of(statement.run_as.empty() ? statement.text : statement.run_as);
    Translation result;
    place_row_limit(pieces, dialect.row_limit);
    name_unnamed_column(pieces);
    unqualify_set(pieces);
    result.hidden_key = statement.table != nullptr && add_key(pieces, *statement.table);
    Writer(dialect, result).write(pieces);
    return result;
}

} // namespace qz::platform
