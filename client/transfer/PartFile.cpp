#include "client/transfer/PartFile.h"

#include "base/Text.h"
#include "client/transfer/FileName.h"
#include "client/transfer/SourceFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace qz::client::transfer {

namespace {

constexpr int kMostNumbers = 999;                              // "name (999)"
constexpr mode_t kMode = 0600;                                 // what the umask takes away is taken away
constexpr std::uint64_t kSpareRoom = std::uint64_t{1} << 20U;  // left free for everybody else
constexpr std::uint64_t kFlushStep = std::uint64_t{16} << 20U; // so that the last flush has little to do

Outcome write_failure(int error)
{
    return error == ENOSPC || error == EDQUOT ? Outcome::DiskFull : Outcome::CannotWrite;
}

std::filesystem::path with_ending(const std::filesystem::path& path, const char* ending)
{
    auto result = path;
    result += ending;
    return result;
}

bool is_taken(const std::filesystem::path& path)
{
    std::error_code error;
    return std::filesystem::exists(std::filesystem::symlink_status(path, error));
}

/// The name is safe already.
std::string info_text(const PartFile::Offered& offered)
{
    return "velto-file/1\nfrom=" + single_line(offered.from) + "\nsize=" + std::to_string(offered.size)
        + "\nname=" + offered.name + "\n";
}

bool belongs_to(const std::filesystem::path& info, const PartFile::Offered& offered)
{
    std::error_code error;
    constexpr std::uintmax_t kMostBytes = 4'096;
    if (!std::filesystem::is_regular_file(std::filesystem::symlink_status(info, error))
        || std::filesystem::file_size(info, error) > kMostBytes) {
        return false;
    }
    std::ostringstream text;
    text << std::ifstream(info, std::ios::binary).rdbuf();
    return text.str() == info_text(offered);
}

/// In a folder that others can write to, somebody may have laid out a file for this user to fill.
bool is_own_file(const Descriptor& file)
{
    struct stat status { };
    return ::fstat(file.number(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::geteuid()
        && status.st_nlink == 1;
}

/// Gives the file its name unless somebody has that name: nothing is ever overwritten.
/// @return 0, or the error number.
int rename_to_free(const std::filesystem::path& from, const std::filesystem::path& to)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    // This file system cannot. A second name and the loss of the first one come to the same.
    if (::link(from.c_str(), to.c_str()) != 0) {
        return errno;
    }
    ::unlink(from.c_str());
    return 0;
}

} // namespace

PartFile::PartFile(std::filesystem::path folder, Offered offered, std::filesystem::path part)
    : folder_(std::move(folder)), offered_(std::move(offered)), part_(std::move(part))
{
}

PartFile::~PartFile()
{
    if (file_.number() >= 0 && size_ == 0) {
        discard();
    }
}

std::filesystem::path PartFile::info() const
{
    return with_ending(part_, ".info");
}

std::variant<std::unique_ptr<PartFile>, Ending> PartFile::open(
    const std::filesystem::path& folder, const Offered& offered)
{
    for (int number = 1; number <= kMostNumbers; ++number) {
        const auto path = folder / numbered_file_name(offered.name, number);
        const auto part = with_ending(path, ".part");
        const auto info = with_ending(part, ".info");
        const bool goes_on = belongs_to(info, offered) && is_taken(part);
        if (!goes_on && (is_taken(path) || is_taken(part) || is_taken(info))) {
            continue;
        }
        std::unique_ptr<PartFile> file(new PartFile(folder, offered, part));
        const auto failure = file->open_part(goes_on);
        if (!failure) {
            return file;
        }
        if (!failure->detail.empty()) {
            return *failure;
        }
    }
    return Ending{Outcome::CannotWrite, false, "Too many files have that name."};
}

/// @return a failure without a detail when somebody else was faster, or is at it.
std::optional<Ending> PartFile::open_part(bool goes_on)
{
    const int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | (goes_on ? 0 : O_CREAT | O_EXCL);
    Descriptor file(::open(part_.c_str(), flags, kMode));
    if (file.number() < 0) {
        return Ending{write_failure(errno), false, goes_on || errno == EEXIST ? "" : system_text(errno)};
    }
    if (!is_own_file(file) || ::flock(file.number(), LOCK_EX | LOCK_NB) != 0) {
        return Ending{Outcome::CannotWrite};
    }
    const auto size = ::lseek(file.number(), 0, SEEK_END);
    size_ = size > 0 ? static_cast<std::uint64_t>(size) : 0;
    file_ = std::move(file);
    if (!goes_on) {
        Descriptor note(::open(info().c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_CREAT | O_EXCL, kMode));
        const auto text = info_text(offered_);
        if (::write(note.number(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
            return Ending{write_failure(errno), false, system_text(errno)};
        }
    }
    return check_room();
}

std::optional<Ending> PartFile::check_room() const
{
    struct statvfs room { };
    if (::fstatvfs(file_.number(), &room) != 0) {
        return std::nullopt; // writing will tell
    }
    const auto free = static_cast<std::uint64_t>(room.f_bavail) * room.f_frsize;
    const auto needed = offered_.size - (std::min)(offered_.size, size_);
    if (needed + kSpareRoom <= free) {
        return std::nullopt;
    }
    return Ending{Outcome::DiskFull, false,
        "It needs " + std::to_string(needed) + " bytes, " + std::to_string(free) + " are free."};
}

bool PartFile::read(std::uint64_t at, std::span<char> buffer)
{
    return read_whole(file_, at, buffer);
}

std::optional<Outcome> PartFile::append(std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto size = ::pwrite(file_.number(), bytes.data(), bytes.size(), static_cast<off_t>(size_));
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            return write_failure(size < 0 ? errno : ENOSPC);
        }
        size_ += static_cast<std::uint64_t>(size);
        bytes.remove_prefix(static_cast<std::size_t>(size));
    }
    if (size_ - flushed_ >= kFlushStep) { // begins to write and does not wait
        ::sync_file_range(file_.number(), static_cast<off_t>(flushed_), static_cast<off_t>(size_ - flushed_),
            SYNC_FILE_RANGE_WRITE);
        flushed_ = size_;
    }
    return std::nullopt;
}

std::optional<Outcome> PartFile::restart()
{
    if (::ftruncate(file_.number(), 0) != 0) {
        return write_failure(errno);
    }
    size_ = 0;
    flushed_ = 0;
    return std::nullopt;
}

std::optional<Outcome> PartFile::commit()
{
    if (::fsync(file_.number()) != 0) {
        return write_failure(errno);
    }
    for (int number = 1; number <= kMostNumbers; ++number) {
        const auto path = folder_ / numbered_file_name(offered_.name, number);
        const int error = rename_to_free(part_, path);
        if (error == EEXIST) {
            continue;
        }
        if (error != 0) {
            return write_failure(error);
        }
        path_ = path;
        is_gone_ = true;
        ::unlink(info().c_str());
        const Descriptor folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        ::fsync(folder.number()); // the new name is there after a power loss, too
        return std::nullopt;
    }
    return Outcome::CannotWrite;
}

void PartFile::discard()
{
    if (!is_gone_) {
        is_gone_ = true;
        ::unlink(part_.c_str());
        ::unlink(info().c_str());
    }
}

} // namespace qz::client::transfer
