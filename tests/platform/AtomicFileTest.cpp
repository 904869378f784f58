#include "platform/AtomicFile.h"

#include "base/EngineError.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using qz::platform::AtomicFile;
using qz::test::bytes_of;
using qz::test::put_bytes;

namespace {

constexpr std::filesystem::perms kPermissions{0640};

class AtomicFileTest : public testing::Test {
protected:
    qz::test::TemporaryFolder folder_;
    std::filesystem::path path_ = folder_ / "file";
    AtomicFile file_{path_};

    void replace(const std::string& bytes) { AtomicFile::replace(file_.lock(), bytes, kPermissions); }
};

/// Runs `work` in a child process. @return its exit code; -1 when it was killed.
template <typename Work> int in_child(Work&& work)
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(work());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST_F(AtomicFileTest, KeepsPermissionsOwnerAndLink)
{
    put_bytes(folder_ / "real", "old");
    std::filesystem::permissions(folder_ / "real", std::filesystem::perms{0604});
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown((folder_ / "real").c_str(), 1234, 2345), 0);
    }
    std::filesystem::create_symlink("real", folder_ / "link");
    std::filesystem::create_symlink(folder_ / "link", path_);
    replace("new");
    EXPECT_TRUE(std::filesystem::is_symlink(path_));
    EXPECT_TRUE(std::filesystem::is_symlink(folder_ / "link"));
    EXPECT_EQ(bytes_of(folder_ / "real"), "new");
    struct stat status { };
    ASSERT_EQ(::stat((folder_ / "real").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0604U);
    if (::geteuid() == 0) {
        EXPECT_EQ(status.st_uid, 1234U);
        EXPECT_EQ(status.st_gid, 2345U);
    }
    EXPECT_EQ(folder_.file_count(), 3);
}

TEST_F(AtomicFileTest, ALinkToNothingMakesWhatItNames)
{
    std::filesystem::create_directory(folder_ / "other");
    std::filesystem::create_symlink("other/real", path_);
    EXPECT_FALSE(file_.read());
    replace("new");
    EXPECT_TRUE(std::filesystem::is_symlink(path_));
    EXPECT_EQ(bytes_of(folder_.path() / "other" / "real"), "new");
    std::filesystem::remove(path_);
    std::filesystem::create_symlink("file", path_);
    EXPECT_THROW(file_.lock(), qz::EngineError) << "a link to itself";
}

TEST_F(AtomicFileTest, AFailedWriteLeavesTheOldFile)
{
    replace("old");
    put_bytes(folder_ / ".file.tmp", "left behind by a killed process");
    const int code = in_child([&] {
        // What a full disk does: the first bytes fit, the rest does not.
        const rlimit limit{8192, 8192};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        try {
            replace(std::string(100'000, 'x'));
        } catch (const qz::EngineError& error) {
            return error.description().find("file") == std::string::npos ? 2 : 0;
        }
        return 1;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(bytes_of(path_), "old");
    EXPECT_EQ(folder_.file_count(), 1);
    replace("new");
    EXPECT_EQ(bytes_of(path_), "new") << "the lock went with the failure";
}

TEST_F(AtomicFileTest, RefusesWhatIsNoPlainFile)
{
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    EXPECT_THROW(file_.read(), qz::EngineError) << "and does not wait for a writer";
    EXPECT_THROW(replace("x"), qz::EngineError);
    EXPECT_THROW(AtomicFile(folder_.path() / "none" / "file").lock(), qz::EngineError);
    EXPECT_FALSE(AtomicFile(folder_ / "none").read());
    const AtomicFile huge(folder_ / "huge");
    std::filesystem::permissions(folder_.path(), std::filesystem::perms{0700});
    put_bytes(huge.path(), "");
    std::filesystem::resize_file(huge.path(), AtomicFile::kSizeLimit + 1);
    EXPECT_THROW(huge.read(), qz::EngineError);
}

TEST_F(AtomicFileTest, AReaderSeesWholeFilesOnly)
{
    const auto version = [](int number) {
        return std::string(
            static_cast<std::size_t>(50'000 + number * 10), static_cast<char>('a' + number % 26));
    };
    replace(version(0));
    const pid_t writer = ::fork();
    if (writer == 0) {
        for (int i = 1; i <= 200; ++i) {
            replace(version(i));
        }
        ::_exit(0);
    }
    int status = 0;
    int reads = 0;
    while (::waitpid(writer, &status, WNOHANG) == 0) {
        const auto content = file_.read();
        ASSERT_TRUE(content) << "there is a file at any time";
        ASSERT_EQ(content->bytes.find_first_not_of(content->bytes.front()), std::string::npos);
        ASSERT_EQ(content->bytes.size() % 10, 0U);
        ++reads;
    }
    EXPECT_EQ(status, 0);
    EXPECT_GT(reads, 0);
    EXPECT_EQ(bytes_of(path_), version(200));
}

TEST_F(AtomicFileTest, ATryForTheLockDoesNotWait)
{
    replace("old");
    {
        const auto held = file_.lock();
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(file_.try_lock());
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    }
    const auto lock = file_.try_lock();
    ASSERT_TRUE(lock);
    EXPECT_TRUE(AtomicFile::replace(*lock, "new", kPermissions, qz::platform::Flush::Begin));
    EXPECT_EQ(bytes_of(path_), "new");
}

TEST_F(AtomicFileTest, AStampOfAFreshFileVouchesForNothing)
{
    replace("new");
    const auto content = file_.read();
    EXPECT_FALSE(content->settled) << "another write within the same step of the clock would not show";
    EXPECT_EQ(content->stamp, file_.stamp());
    replace("old");
    EXPECT_NE(content->stamp, file_.stamp());
}

TEST_F(AtomicFileTest, CreateNeverOverwrites)
{
    EXPECT_TRUE(file_.create("first", std::filesystem::perms{0600}));
    EXPECT_FALSE(file_.create("second", std::filesystem::perms{0600}));
    EXPECT_EQ(bytes_of(path_), "first");
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(path_).permissions()), 0600U);
    EXPECT_EQ(folder_.file_count(), 1);
}
