#include "client/transfer/SourceFile.h"

#include "client/transfer/NegotiationText.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace qz::client::transfer {

std::string system_text(int error)
{
    return std::generic_category().message(error) + ".";
}

bool read_whole(const Descriptor& file, std::uint64_t at, std::span<char> buffer)
{
    while (!buffer.empty()) {
        const auto size = ::pread(file.number(), buffer.data(), buffer.size(), static_cast<off_t>(at));
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            return false;
        }
        at += static_cast<std::uint64_t>(size);
        buffer = buffer.subspan(static_cast<std::size_t>(size));
    }
    return true;
}

std::variant<std::unique_ptr<SourceFile>, Ending> SourceFile::open(const std::filesystem::path& path)
{
    // Without O_NONBLOCK, opening a pipe would wait for somebody at its other end.
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat opened { };
    if (file.number() < 0 || ::fstat(file.number(), &opened) != 0) {
        return Ending{Outcome::CannotRead, false, system_text(errno)};
    }
    if (!S_ISREG(opened.st_mode)) {
        return Ending{Outcome::CannotRead, false, "It is not an ordinary file."};
    }
    if (static_cast<std::uint64_t>(opened.st_size) > kMaxFileSize) {
        return Ending{Outcome::CannotRead, false, "It is too large."};
    }
    return std::unique_ptr<SourceFile>(new SourceFile(std::move(file), opened));
}

bool SourceFile::read(std::uint64_t at, std::span<char> buffer)
{
    return read_whole(file_, at, buffer);
}

bool SourceFile::is_unchanged() const
{
    struct stat now { };
    return ::fstat(file_.number(), &now) == 0 && now.st_size == opened_.st_size
        && now.st_mtim.tv_sec == opened_.st_mtim.tv_sec && now.st_mtim.tv_nsec == opened_.st_mtim.tv_nsec;
}

} // namespace qz::client::transfer
