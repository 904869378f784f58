#include "helpers/MessageParser.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>

using qz::helpers::MessageParser;

namespace {

/// Gives one number for every question, and notes the limit.
class FixedCrypto : public qz::helpers::Crypto {
public:
    std::uint64_t random_below(std::uint64_t limit) override
    {
        limit_ = limit;
        return answer_ < limit ? answer_ : limit - 1;
    }
    Key random_key() override { return {}; }
    Key hash(std::string_view) override { return {}; }
    std::string seal(const Key&, std::string_view) override { return {}; }
    std::optional<std::string> open(const Key&, std::string_view) override { return {}; }
    std::string to_base64url(std::string_view) override { return {}; }
    std::optional<std::string> from_base64url(std::string_view) override { return {}; }

    std::uint64_t answer_ = 0;
    std::uint64_t limit_ = 0;
};

struct MessageParserTest : testing::Test {
    FixedCrypto crypto;
    MessageParser parser{crypto};
};

} // namespace

TEST_F(MessageParserTest, FindsFieldsByPosition)
{
    EXPECT_EQ(parser.field("logon a=1 b=2", 1), "logon");
    EXPECT_EQ(parser.field("logon a=1 b=2", 3), "b=2");
    EXPECT_EQ(parser.field("logon a=1 b=2", 4), "");
    EXPECT_EQ(parser.field("logon", 1), "logon");
    EXPECT_EQ(parser.field("a  c", 2), "");
    EXPECT_EQ(parser.field("a  c", 3), "c");
    EXPECT_EQ(parser.field(" a", 1), "");
    EXPECT_EQ(parser.field("a b", 0), "");
    EXPECT_EQ(parser.field("", 1), "");
}

TEST_F(MessageParserTest, TakesTheTextAfterTheKeywordOnlyWhenItStandsFirst)
{
    EXPECT_EQ(parser.text_after_keyword("logon a=1 b=2", "logon"), "a=1 b=2");
    EXPECT_EQ(parser.text_after_keyword("logon  a=1", "logon"), " a=1");
    EXPECT_EQ(parser.text_after_keyword("logon", "logon"), "");
    EXPECT_EQ(parser.text_after_keyword("logons a=1", "logon"), "logons a=1");
    EXPECT_EQ(
        parser.text_after_keyword("roomlist screenname=ann", "onlinebuddies"), "roomlist screenname=ann");
}

TEST_F(MessageParserTest, DelimitsValues)
{
    struct Case {
        const char* text;
        const char* key;
        const char* value;
    };
    const Case cases[] = {
        {"screenname=ann status=away", "screenname", "ann"},
        {"screenname=ann status=away", "status", "away"},
        {"comment=my friend a=b from work status=x", "comment", "my friend a=b from work"},
        {"logon screenname=ann", "screenname", "ann"},
        {"logon screenname=ann", "password", ""},
        {"screenname=ann screenname=bob", "screenname", "ann"},
        {"screennamefrom=ann screenname=bob", "screenname", "bob"},
        {"xscreenname=ann", "screenname", ""},
        {"\tscreenname=ann", "screenname", ""},
        {"ScreenName=ann", "screenname", ""},
        {"screenname= status=x", "screenname", ""},
        {"screenname=", "screenname", ""},
        {"screenname", "screenname", ""},
        {"screenname=a=b==", "screenname", "a=b=="},
        {"group=  two blanks   myIP=10.0.0.1", "group", "  two blanks"},
        {"group=x   ", "group", "x"},
        {"group=   ", "group", ""},
        {"a=1 b=2 group=x y=3", "a", "1 b=2"},
        {"group=x version=2", "group", "x"},
        {"group=x urlLastClientVersionAvailable=u", "group", "x"},
        {"group=x urlLastClientVersionAvailables=u", "group", "x urlLastClientVersionAvailables=u"},
        {"status=x", "", ""},
        {"=x", "", ""},
        // What a person typed is never taken for a key, and keeps its blanks.
        {"screennameto=bob msg= hi  sessionidvalue=1 myIP=1 ", "msg", " hi  sessionidvalue=1 myIP=1 "},
        {"screennameto=bob msg=hi sessionidvalue=1", "sessionidvalue", ""},
        {"screennameto=bob msg=hi sessionidvalue=1", "screennameto", "bob"},
        {"msg=one msg=two", "msg", "one msg=two"},
        {"msgid=4 message=yes sir msg=x", "message", "yes sir"},
    };
    for (const auto& [text, key, value] : cases) {
        EXPECT_EQ(parser.value(text, key), value) << "'" << key << "' of: " << text;
    }
}

TEST_F(MessageParserTest, ValuesTakeLinearTime)
{
    std::string blanks = "comment=" + std::string(1U << 20U, ' ') + "status=x";
    std::string pairs;
    for (int i = 0; i < 200000; ++i) {
        pairs += " a=b=";
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(parser.value(blanks, "status"), "x");
    EXPECT_EQ(parser.value(blanks, "comment"), "");
    EXPECT_EQ(parser.value(pairs, "status"), "");
    // Quadratic time would be hours.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(MessageParserTest, DoublesQuotes)
{
    EXPECT_EQ(parser.CleanText("O'Hara''s"), "O''Hara''''s");
    EXPECT_EQ(parser.CleanText("plain"), "plain");
}

TEST_F(MessageParserTest, FreshNumbersAreWholeAndExact)
{
    EXPECT_EQ(parser.fresh_number(), 1);
    crypto.answer_ = UINT64_MAX;
    EXPECT_EQ(parser.fresh_number(), 9007199254740991.0);
}

TEST(Booleans, AreReadWithoutRegardToCase)
{
    for (const auto* text : {"True", "TRUE", "true", "yes", "YES", "1", "-1"}) {
        EXPECT_TRUE(qz::helpers::read_boolean(text)) << text;
    }
    for (const auto* text : {"", "False", "no", "0", "2", "True ", "y"}) {
        EXPECT_FALSE(qz::helpers::read_boolean(text)) << text;
    }
    EXPECT_EQ(qz::helpers::boolean_text(true), "True");
    EXPECT_EQ(qz::helpers::boolean_text(false), "False");
}
