#include "helpers/SettingsCipher.h"

#include "base/EngineError.h"
#include "platform/sodium/SodiumCrypto.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace std::string_literals;
using qz::helpers::CredentialForm;
using qz::helpers::Crypto;
using qz::helpers::EncodeCredential;
using qz::helpers::SettingsCipher;

namespace {

class FixedKey : public qz::helpers::KeySource {
public:
    explicit FixedKey(unsigned char byte) { key_.fill(byte); }
    virtual ~FixedKey() = default;
    const Crypto::Key& key() override { return key_; }
    const Crypto::Key& existing_key() override { return key_; }

private:
    Crypto::Key key_{};
};

class SettingsCipherTest : public testing::Test {
protected:
    qz::platform::SodiumCrypto crypto_;
    FixedKey key_{1};
    SettingsCipher cipher_{crypto_, key_};
};

} // namespace

TEST_F(SettingsCipherTest, EverythingComesBack)
{
    std::string all_bytes;
    for (int i = 0; i < 256; ++i) {
        all_bytes.push_back(static_cast<char>(i));
    }
    const std::string texts[] = {
        "", "a", "pass wörd", "{v1}nested", all_bytes, std::string().append(10'000'000, '\xFE')};
    for (const auto& text : texts) {
        const std::string encoded = cipher_.Encode(text);
        EXPECT_EQ(encoded.size(), SettingsCipher::encoded_size(text.size()));
        EXPECT_EQ(encoded.substr(4).find_first_not_of(
                      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"),
            std::string::npos)
            << "one line, whatever the text";
        EXPECT_EQ(cipher_.Decode(encoded), text);
    }
    EXPECT_NE(cipher_.Encode("same"), cipher_.Encode("same"));
}

TEST_F(SettingsCipherTest, OnlyMarkedTextsAreDecoded)
{
    for (const std::string text : {"", "plain", "v1}x", " {v1}x", "{V1}x", "{v2}x"}) {
        EXPECT_EQ(cipher_.Decode(text), text);
    }
    FixedKey other_key(2);
    const std::string encoded = cipher_.Encode("secret");
    const std::string changed[] = {SettingsCipher(crypto_, other_key).Encode("secret"), "{v1}", "{v1}x",
        encoded + "A", encoded.substr(0, encoded.size() - 1), encoded + "\n",
        std::string(encoded).replace(40, 1, encoded[40] == 'A' ? "B" : "A")};
    for (const auto& text : changed) {
        EXPECT_THROW(cipher_.Decode(text), qz::EngineError) << text;
    }
}

TEST_F(SettingsCipherTest, CredentialsAreBoundToTheAddress)
{
    const auto field = [&](std::string_view text, std::string_view address, CredentialForm form) {
        const auto whole = EncodeCredential(crypto_, text, address, form);
        EXPECT_TRUE(whole.starts_with(SettingsCipher::Marker));
        return whole.substr(4);
    };
    for (const std::string& text : {""s, "anna"s, "pässwörd '; -- "s, std::string(5000, 'x')}) {
        EXPECT_EQ(cipher_.DecodeCredential(field(text, "", CredentialForm::Plain), "10.0.0.1"), text);
        EXPECT_EQ(
            cipher_.DecodeCredential(field(text, "10.0.0.1", CredentialForm::Address), "10.0.0.1"), text);
    }
    const std::string sealed = field("anna", "10.0.0.1", CredentialForm::Address);
    EXPECT_EQ(cipher_.DecodeCredential(sealed, "10.0.0.2"), "");
    EXPECT_EQ(cipher_.DecodeCredential(sealed, "10.0.0.1 "), "");
    EXPECT_EQ(cipher_.DecodeCredential("pYW5uYQ", ""), "anna") << "the form that clients elsewhere make";
    const std::string bad[] = {"", "p*", "x" + sealed.substr(1), "P" + sealed.substr(1), "a", "aYW5uYQ",
        sealed + "A", "pYW5uYQ==", "p_w", "pYW5u\nYQ", "\xFF"};
    for (const auto& text : bad) {
        EXPECT_EQ(cipher_.DecodeCredential(text, "10.0.0.1"), "") << text;
    }
}
