#include "config/KeyFile.h"

#include "base/EngineError.h"
#include "support/Secrets.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

class KeyFileTest : public testing::Test {
protected:
    qz::test::TemporaryFolder folder_;
    std::filesystem::path path_ = folder_ / "VELTO_Server.key";
    qz::test::Secrets secrets_{folder_.path()};
};

} // namespace

TEST_F(KeyFileTest, IsMadeOnceForItsOwnerAlone)
{
    EXPECT_THROW(secrets_.key_file.existing_key(), qz::EngineError);
    EXPECT_THROW(secrets_.cipher.Decode("{v1}" + std::string(80, 'A')), qz::EngineError);
    EXPECT_EQ(folder_.file_count(), 0) << "only encoding makes a key";
    const auto key = secrets_.key_file.key();
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(path_).permissions()), 0600U);
    EXPECT_FALSE(secrets_.key_file.is_readable_by_others());
    EXPECT_EQ(folder_.file_count(), 1);
    EXPECT_EQ(qz::test::Secrets(folder_.path()).key_file.key(), key);
    std::filesystem::permissions(path_, std::filesystem::perms{0640});
    EXPECT_TRUE(secrets_.key_file.is_readable_by_others());
}

TEST_F(KeyFileTest, WhatIsNoKeyIsAnErrorAndStays)
{
    const std::string good = secrets_.crypto.to_base64url(std::string(32, 'k'));
    const std::string bad[] = {"", "\n", good.substr(0, 42), good + "A", good.substr(0, 42) + "!",
        std::string(32, '\0'), good + "\n" + good + "\n"};
    for (const auto& bytes : bad) {
        qz::test::put_bytes(path_, bytes);
        qz::test::Secrets secrets(folder_.path());
        try {
            secrets.cipher.Encode("x");
            ADD_FAILURE() << "taken for a key: " << bytes;
        } catch (const qz::EngineError& error) {
            EXPECT_NE(error.description().find(path_.string()), std::string::npos);
        }
        EXPECT_EQ(qz::test::bytes_of(path_), bytes);
    }
    qz::test::put_bytes(path_, good + "\r\n");
    EXPECT_EQ(secrets_.key_file.key()[31], 'k') << "a line end of an editor does no harm";
}

TEST_F(KeyFileTest, ProcessesThatRaceShareOneKey)
{
    std::vector<pid_t> children;
    std::vector<std::string> encoded;
    for (int i = 0; i < 8; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            qz::test::Secrets own(folder_.path());
            qz::test::put_bytes(folder_.path() / std::to_string(i), own.cipher.Encode("secret"));
            ::_exit(0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    for (int i = 0; i < 8; ++i) {
        const auto text = qz::test::bytes_of(folder_.path() / std::to_string(i));
        EXPECT_EQ(secrets_.cipher.Decode(text), "secret");
        EXPECT_NE(text, "secret");
    }
    EXPECT_EQ(folder_.file_count(), 9);
}
