// A small file that several processes read and replace: readers always see a whole file, the old one or the
// new one, and writers take turns.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace qz::platform {

/// Tells one state of a file from another. Equal stamps mean equal bytes only when the first of them was
/// settled (see FileContent).
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t file_number = 0;
    std::uint64_t size = 0;
    std::int64_t modified = 0; // nanoseconds
    std::int64_t changed = 0;  // nanoseconds; moves with every write, also where the time above is set back

    bool operator==(const FileStamp&) const = default;
};

struct FileContent {
    std::string bytes;
    FileStamp stamp; // taken before the bytes were read
    /// The last change lay so far back when the stamp was taken that every later change shows in the stamp.
    /// File times advance in steps of several milliseconds: a second change within one step would not.
    bool settled = false;

    /// The bytes are those that AtomicFile::replace gave the file, so nobody is still writing them: the
    /// fraction of the second in the time of the last write is then a checksum of the bytes. A file system
    /// that keeps no such fractions makes this false.
    bool is_sealed() const;
};

/// The right to replace one file. Held by one process, and within it by one object, at a time.
class FileLock {
public:
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&&) = delete;
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock();

private:
    friend class AtomicFile;
    FileLock(std::intptr_t folder, std::filesystem::path target);

    std::intptr_t folder_; // the operating system's handle of the folder
    std::filesystem::path target_;
};

/// Whether the caller waits until the disk has what was written. Without it a power loss may leave the file
/// empty where the file system orders neither data nor names; the new file is whole for every reader at once.
enum class Flush { Wait, Begin };

/// Errors of every operation are EngineError FileAccess with the operating system's text and the file's path.
class AtomicFile {
public:
    /// Larger files are neither read nor written.
    static constexpr std::size_t kSizeLimit = std::size_t{64} * 1024 * 1024;

    explicit AtomicFile(std::filesystem::path path) : path_(std::move(path)) { }

    const std::filesystem::path& path() const { return path_; }
    /// Nothing when there is no such file.
    std::optional<FileStamp> stamp() const;
    std::optional<FileContent> read() const;

    /// Waits, a few seconds at most, until nobody else holds the lock of a file in the same folder. Not to be
    /// nested: a second lock taken by the holder would wait for itself.
    FileLock lock() const;
    /// The same without waiting: nothing when somebody else holds the lock.
    std::optional<FileLock> try_lock() const;
    /// Replaces the file, or makes it. Permissions and owner of an existing file stay; where the path is a
    /// symbolic link, the link stays and the file that it names is replaced. On failure the old file stays
    /// as it was.
    /// @param permissions  of a file that is made.
    /// @return false when somebody who does not know of the lock has changed the file meanwhile; it is then
    /// left alone.
    static bool replace(const FileLock& lock, std::string_view bytes, std::filesystem::perms permissions,
        Flush flush = Flush::Wait);

    /// Makes the file with these bytes, unless there is one. Needs no lock: of several processes that try at
    /// once one succeeds. The new file survives a power loss once this has returned.
    /// @return false when the file exists already; it is left alone.
    bool create(std::string_view bytes, std::filesystem::perms permissions) const;

private:
    std::filesystem::path path_;
};

} // namespace qz::platform
