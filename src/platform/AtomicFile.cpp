#include "platform/AtomicFile.h"

#include "base/EngineError.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace qz::platform {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds kSettlingTime{50}; // file times advance at least every 10 ms
constexpr std::chrono::seconds kLockPatience{5};
constexpr std::chrono::microseconds kLockPause{500};
constexpr int kMostLinks = 40;
constexpr std::size_t kMoreBytes = 65536;
constexpr std::int64_t kNanoseconds = 1'000'000'000;

[[noreturn]] void fail(const fs::path& path, int error)
{
    throw runtime_error(
        RuntimeError::FileAccess, path.string() + ": " + std::generic_category().message(error));
}

int check(int result, const fs::path& path)
{
    if (result < 0) {
        fail(path, errno);
    }
    return result;
}

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) { }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    int number() const { return number_; }
    int release() { return std::exchange(number_, -1); }

private:
    int number_;
};

/// A file under a passing name, removed unless it was renamed.
class Temporary {
public:
    explicit Temporary(fs::path path) : path_(std::move(path)) { }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    ~Temporary()
    {
        if (!path_.empty()) {
            ::unlink(path_.c_str());
        }
    }
    void rename_to(const fs::path& target)
    {
        check(::rename(path_.c_str(), target.c_str()), target);
        path_.clear();
    }

private:
    fs::path path_;
};

std::int64_t nanoseconds(const timespec& time)
{
    return std::int64_t{time.tv_sec} * kNanoseconds + time.tv_nsec;
}

FileStamp stamp_of(const struct stat& status)
{
    return {status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size),
        nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
}

bool is_settled(const FileStamp& stamp)
{
    const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return now.count() - (std::max)(stamp.modified, stamp.changed)
        > std::chrono::nanoseconds(kSettlingTime).count();
}

/// Reads up to the end, which may lie elsewhere than the size said when somebody edits the file in place.
std::string read_all(const Descriptor& file, const fs::path& path, std::uint64_t expected)
{
    std::string bytes;
    std::size_t used = 0;
    bytes.resize(static_cast<std::size_t>(expected) + 1);
    for (;;) {
        const auto got = ::read(file.number(), bytes.data() + used, bytes.size() - used);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            fail(path, errno);
        }
        if (got == 0) {
            bytes.resize(used);
            return bytes;
        }
        used += static_cast<std::size_t>(got);
        if (used > AtomicFile::kSizeLimit) {
            fail(path, EFBIG);
        }
        if (used == bytes.size()) {
            bytes.resize(used + kMoreBytes);
        }
    }
}

void write_all(const Descriptor& file, const fs::path& path, std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto put = ::write(file.number(), bytes.data(), bytes.size());
        if (put < 0 && errno != EINTR) {
            fail(path, errno);
        }
        bytes.remove_prefix(put > 0 ? static_cast<std::size_t>(put) : 0);
    }
}

/// FNV-1a, brought into the range of a fraction of a second.
std::int64_t checksum(std::string_view bytes)
{
    std::uint64_t sum = 14695981039346656037U;
    for (const char byte : bytes) {
        sum = (sum ^ static_cast<unsigned char>(byte)) * 1099511628211U;
    }
    return static_cast<std::int64_t>((sum ^ (sum >> 32U)) % static_cast<std::uint64_t>(kNanoseconds));
}

/// Dates the file back by less than two seconds: a time in the future would count as a change to come.
void seal(const Descriptor& file, std::string_view bytes)
{
    const timespec access{.tv_sec = 0, .tv_nsec = UTIME_OMIT};
    const timespec modified{.tv_sec = ::time(nullptr) - 1, .tv_nsec = checksum(bytes)};
    const timespec times[] = {access, modified};
    ::futimens(file.number(), times); // without it readers only have to wait
}

void flush_to_disk(const Descriptor& file, const fs::path& path, Flush flush)
{
    if (flush == Flush::Wait) {
        check(::fsync(file.number()), path); // a disk that is full or broken may tell only now
        return;
    }
#ifdef __linux__
    ::sync_file_range(file.number(), 0, 0, SYNC_FILE_RANGE_WRITE); // a power loss finds it on the disk sooner
#endif
}

/// The file that the path means: links are followed to their end, also when nothing is there yet.
fs::path followed(fs::path path)
{
    std::error_code ignored;
    for (int links = 0; fs::is_symlink(fs::symlink_status(path, ignored)); ++links) {
        if (links == kMostLinks) {
            fail(path, ELOOP);
        }
        path = path.parent_path() / fs::read_symlink(path);
    }
    return path;
}

fs::path folder_of(const fs::path& path)
{
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

mode_t mode_of(fs::perms permissions)
{
    return static_cast<mode_t>(permissions & fs::perms::mask);
}

/// Somebody wrote into the file, or put another one in its place.
bool has_changed(const fs::path& path, bool existed, const struct stat& old)
{
    struct stat now { };
    const bool exists = ::lstat(path.c_str(), &now) == 0;
    return exists != existed || (exists && !(stamp_of(now) == stamp_of(old)));
}

/// Opens the folder of the file, which is what is locked: it needs no file beside the one that is protected,
/// and unlike that one it stays the same when the file is replaced.
int open_folder(const fs::path& target)
{
    const fs::path folder = folder_of(target);
    return check(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), folder);
}

/// @return false when somebody else holds the lock.
bool lock_folder(const Descriptor& handle, const fs::path& target)
{
    if (::flock(handle.number(), LOCK_EX | LOCK_NB) == 0) {
        return true;
    }
    if (errno != EWOULDBLOCK && errno != EINTR) {
        fail(folder_of(target), errno);
    }
    return false;
}

/// Gives the new file the owner and permissions of the one that it replaces.
void take_after(const Descriptor& file, const fs::path& path, const struct stat& old)
{
    mode_t mode = old.st_mode & 07777U;
    struct stat made { };
    check(::fstat(file.number(), &made), path);
    const bool same = made.st_uid == old.st_uid && made.st_gid == old.st_gid;
    // Only root may give a file away; anybody else can at most keep the group.
    if (!same && ::fchown(file.number(), old.st_uid, old.st_gid) != 0
        && ::fchown(file.number(), static_cast<uid_t>(-1), old.st_gid) != 0) {
        mode &= ~static_cast<mode_t>(S_IRWXG); // they were meant for another group
    }
    check(::fchmod(file.number(), mode), path);
}

} // namespace

bool FileContent::is_sealed() const
{
    return stamp.modified % kNanoseconds == checksum(bytes);
}

FileLock::FileLock(std::intptr_t folder, fs::path target) : folder_(folder), target_(std::move(target)) { }

FileLock::FileLock(FileLock&& other) noexcept
    : folder_(std::exchange(other.folder_, -1)), target_(std::move(other.target_))
{
}

FileLock::~FileLock()
{
    if (folder_ >= 0) {
        // Said aloud, because a child process may still hold the same open folder.
        ::flock(static_cast<int>(folder_), LOCK_UN);
        ::close(static_cast<int>(folder_));
    }
}

std::optional<FileStamp> AtomicFile::stamp() const
{
    struct stat status { };
    if (::stat(path_.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        fail(path_, errno);
    }
    return stamp_of(status);
}

std::optional<FileContent> AtomicFile::read() const
{
    // Not blocking, so that a pipe in the file's place cannot hold the caller.
    const Descriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.number() < 0 && errno == ENOENT) {
        return std::nullopt;
    }
    check(file.number(), path_);
    struct stat status { };
    check(::fstat(file.number(), &status), path_);
    if (!S_ISREG(status.st_mode)) {
        fail(path_, S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    }
    if (static_cast<std::uint64_t>(status.st_size) > kSizeLimit) {
        fail(path_, EFBIG);
    }
    FileContent content;
    content.stamp = stamp_of(status);
    content.settled = is_settled(content.stamp);
    content.bytes = read_all(file, path_, content.stamp.size);
    return content;
}

FileLock AtomicFile::lock() const
{
    fs::path target = followed(path_);
    Descriptor handle(open_folder(target));
    // Tried again and again instead of waited for, so that a stopped process cannot stop this one too.
    const auto deadline = std::chrono::steady_clock::now() + kLockPatience;
    while (!lock_folder(handle, target)) {
        if (std::chrono::steady_clock::now() > deadline) {
            fail(folder_of(target), ETIMEDOUT);
        }
        std::this_thread::sleep_for(kLockPause);
    }
    return {handle.release(), std::move(target)};
}

std::optional<FileLock> AtomicFile::try_lock() const
{
    fs::path target = followed(path_);
    Descriptor handle(open_folder(target));
    if (!lock_folder(handle, target)) {
        return std::nullopt;
    }
    return FileLock(handle.release(), std::move(target));
}

bool AtomicFile::replace(const FileLock& lock, std::string_view bytes, fs::perms permissions, Flush flush)
{
    const fs::path& target = lock.target_;
    if (bytes.size() > kSizeLimit) {
        fail(target, EFBIG);
    }
    struct stat old { };
    const bool exists = ::lstat(target.c_str(), &old) == 0;
    if (exists && !S_ISREG(old.st_mode)) {
        fail(target, EINVAL);
    }
    // One fixed name, safe under the lock: what a killed process left behind is cleared by the next one.
    const fs::path passing = folder_of(target) / ("." + target.filename().string() + ".tmp");
    ::unlink(passing.c_str());
    const Descriptor file(
        check(::open(passing.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR), passing));
    Temporary temporary(passing);
    if (exists) {
        take_after(file, passing, old);
    } else {
        check(::fchmod(file.number(), mode_of(permissions)), passing);
    }
    write_all(file, passing, bytes);
    seal(file, bytes);
    flush_to_disk(file, passing, flush);
    if (has_changed(target, exists, old)) {
        return false;
    }
    temporary.rename_to(target);
    return true;
}

bool AtomicFile::create(std::string_view bytes, fs::perms permissions) const
{
    const fs::path folder = folder_of(path_);
    std::string name = (folder / ("." + path_.filename().string() + ".XXXXXX")).string();
    const Descriptor file(check(::mkostemp(name.data(), O_CLOEXEC), path_));
    const Temporary temporary(name);
    check(::fchmod(file.number(), mode_of(permissions)), path_);
    write_all(file, path_, bytes);
    flush_to_disk(file, path_, Flush::Wait);
    if (::link(name.c_str(), path_.c_str()) != 0) {
        if (errno == EEXIST) {
            return false;
        }
        fail(path_, errno);
    }
    const Descriptor handle(check(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), folder));
    check(::fsync(handle.number()), folder);
    return true;
}

} // namespace qz::platform
