// Cuts an SQL text into tokens, as far as the engine's own texts need it; everything else is refused.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qz::platform {

enum class TokenKind {
    End,
    Refused, // what no text of the engine contains: comments, stacked statements, double quotes, NUL, ...
    Word,    // a keyword or name; [x] is the word x
    Symbol,  // one of ( ) , . * + = < > <= >= <> and a ; that ends the text
    Text,    // 'a literal'
    Number,  // 12, 0.5; also -12 where it follows a comparison
    Hole,    // {} outside quotes; only in texts that have holes
};

/// A piece of the text that it was cut from, which must stay alive.
struct Token {
    TokenKind kind = TokenKind::End;
    /// A word without its brackets, a text without its outer quotes.
    std::string_view text = {};
    bool bracketed = false;      // of a word
    bool doubled_quotes = false; // of a text that contains '' for '
};

/// The value of a Text token: doubled quotes are single again.
std::string unquoted(const Token& text);

enum class Holes { No, Yes };

/// Inside a literal every byte but NUL is a plain character, the backslash too.
class Tokenizer {
public:
    explicit Tokenizer(std::string_view sql, Holes holes = Holes::No) : rest_(sql), holes_(holes) { }

    /// The next token. End and Refused come again and again.
    Token next();

private:
    Token cut();
    Token word();
    Token bracketed_word();
    Token number(std::size_t sign);
    Token literal();
    Token symbol();
    Token take(TokenKind kind, std::size_t length);

    std::string_view rest_;
    Holes holes_;
    bool after_comparison_ = false;
};

} // namespace qz::platform
