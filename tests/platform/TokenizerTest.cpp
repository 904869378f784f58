#include "platform/database/Tokenizer.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using namespace std::string_literals;
using qz::platform::Holes;
using qz::platform::Token;
using qz::platform::Tokenizer;
using qz::platform::TokenKind;

namespace {

/// The tokens in one line: words bare, texts as 'x', numbers as #x, what is refused as !.
std::string tokens(std::string_view sql, Holes holes = Holes::No)
{
    std::string line;
    Tokenizer tokenizer(sql, holes);
    for (int guard = 0; guard < 1000; ++guard) {
        const Token token = tokenizer.next();
        switch (token.kind) {
        case TokenKind::End:
            return line;
        case TokenKind::Refused:
            return line + "!";
        case TokenKind::Text:
            line += "'" + unquoted(token) + "' ";
            break;
        case TokenKind::Number:
            line += "#" + std::string(token.text) + " ";
            break;
        case TokenKind::Hole:
            line += "{} ";
            break;
        default:
            line += std::string(token.text) + " ";
        }
    }
    return "without end";
}

} // namespace

TEST(Tokenizer, CutsWhatTheEngineWrites)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {" \t\r\n", ""},
        {"SELECT [key],b.[Group]FROM x", "SELECT key , b . Group FROM x "},
        {"a>=1", "a >= #1 "},
        {"a<>'b'", "a <> 'b' "},
        {"a<=-4", "a <= #-4 "},
        {"a= -4", "a = #-4 "},
        {"0.5 7", "#0.5 #7 "},
        {"COUNT(*);", "COUNT ( * ) ; "},
        {"x ; \r\n", "x ; "},
        {"'O''Brien'", "'O'Brien' "},
        {"''", "'' "},
        {"''''", "''' "},
        {"'a''' 'b'", "'a'' 'b' "},
        {R"('C:\' 'x')", R"('C:\' 'x' )"},
        {"'-- /* ; \" {} # \xFF'", "'-- /* ; \" {} # \xFF' "},
        {"'{}'", "'{}' "},
    };
    for (const auto& [sql, expected] : cases) {
        EXPECT_EQ(tokens(sql), expected) << sql;
    }
}

TEST(Tokenizer, RefusesEverythingElse)
{
    const std::string cases[] = {"-- x", "/* x */", "# x", "\"x\"", "`x`", "'open", "'", "'a''", "[open",
        "[]", "[a b]", "[a]]b]", "a; b", ";;", "TOP -1", "a - 1", "= --1", "= -", "=-5-5", "0x10", "1e5",
        "5abc", "@x", ":x", "?", "$1", "{}", "{", "a % b", "a || b", "!= 1", "\\", "ä", "\x80", "a\0b"s,
        "'a\0b'"s, "= " + std::string(41, '9'), "~1", "a / b"};
    for (const auto& sql : cases) {
        EXPECT_EQ(tokens(sql).back(), '!') << sql;
    }
}

TEST(Tokenizer, FindsHolesOnlyWhereATextHasThem)
{
    EXPECT_EQ(tokens("a = {} AND b = '{}'", Holes::Yes), "a = {} AND b = '{}' ");
    EXPECT_EQ(tokens("a = { }", Holes::Yes), "a = !");
}
