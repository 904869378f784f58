#include "PassingFile.h"

#include "common/Exit.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>

namespace velto {

namespace {

[[noreturn]] void fail(const std::filesystem::path& path)
{
    const auto why = std::generic_category().message(errno);
    throw CommandError(Exit::Failed, "the file " + path.string() + " cannot be written: " + why);
}

std::filesystem::path folder_of(const std::filesystem::path& path)
{
    return path.has_parent_path() ? path.parent_path() : ".";
}

} // namespace

PassingFile::PassingFile(const std::filesystem::path& target) : target_(target)
{
    auto name = (folder_of(target) / ("." + target.filename().string() + ".XXXXXX")).string();
    descriptor_ = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        fail(target);
    }
    path_ = name;
}

PassingFile::~PassingFile()
{
    close(descriptor_);
    if (!kept_) {
        unlink(path_.c_str());
    }
}

void PassingFile::keep(Existing existing)
{
    if (fsync(descriptor_) != 0) {
        fail(target_);
    }
    const unsigned flags = existing == Existing::Keep ? RENAME_NOREPLACE : 0;
    int renamed = renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, target_.c_str(), flags);
    if (renamed != 0 && errno == EINVAL) { // a file system that cannot tell in one step
        errno = EEXIST;
        renamed = access(target_.c_str(), F_OK) == 0 ? -1 : rename(path_.c_str(), target_.c_str());
    }
    if (renamed != 0) {
        fail(target_);
    }
    kept_ = true;
    const int folder = open(folder_of(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        fsync(folder);
        close(folder);
    }
}

} // namespace velto
