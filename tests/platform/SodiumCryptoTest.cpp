#include "platform/sodium/SodiumCrypto.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>

namespace {

std::string hex(const qz::helpers::Crypto::Key& key)
{
    std::string text;
    for (const unsigned char byte : key) {
        text += "0123456789abcdef"[byte >> 4U];
        text += "0123456789abcdef"[byte & 15U];
    }
    return text;
}

} // namespace

TEST(SodiumCrypto, HashesAsPublished)
{
    qz::platform::SodiumCrypto crypto;
    EXPECT_EQ(hex(crypto.hash("abc")), "bddd813c634239723171ef3fee98579b94964e3bb1cb3e427262c8c068d52319");
    EXPECT_EQ(hex(crypto.hash("")), "0e5751c026e543b2e8ab2eb06099daa1d1e5df47778f7787faab45cdf12fe3a8");
}

TEST(SodiumCrypto, DrawsEveryNumberBelowTheLimit)
{
    qz::platform::SodiumCrypto crypto;
    std::set<std::uint64_t> drawn;
    for (int i = 0; i < 500; ++i) {
        drawn.insert(crypto.random_below(5));
        EXPECT_EQ(crypto.random_below(1), 0U);
    }
    EXPECT_EQ(drawn, (std::set<std::uint64_t>{0, 1, 2, 3, 4}));
    EXPECT_LT(crypto.random_below(std::uint64_t{1} << 63U), std::uint64_t{1} << 63U);
    EXPECT_NE(crypto.random_below((std::numeric_limits<std::uint64_t>::max)()),
        crypto.random_below((std::numeric_limits<std::uint64_t>::max)()));
}

TEST(SodiumCrypto, ReadsBase64StrictlyAsItWritesIt)
{
    qz::platform::SodiumCrypto crypto;
    const std::pair<std::string, std::string> cases[] = {
        {"", ""}, {"f", "Zg"}, {"fo", "Zm8"}, {"foo", "Zm9v"}, {"\xFB\xFF\xFE", "-__-"}};
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(crypto.to_base64url(bytes), text);
        EXPECT_EQ(crypto.from_base64url(text), bytes);
    }
    for (const char* text : {"Z", "Zg==", "+//+", "Zm9v ", "Zh", "Zm9vZ"}) {
        EXPECT_FALSE(crypto.from_base64url(text)) << text;
    }
}
