// A file that comes into being under a passing name, and gets its own only when it is whole.
#pragma once

#include <filesystem>

namespace velto {

class PassingFile {
public:
    /// Makes an empty file with mode 0600 in the folder of the target.
    /// @throws CommandError 1 when that folder cannot be written.
    explicit PassingFile(const std::filesystem::path& target);
    PassingFile(const PassingFile&) = delete;
    PassingFile& operator=(const PassingFile&) = delete;
    /// Removes the file, unless it was kept.
    ~PassingFile();

    int descriptor() const { return descriptor_; }
    const std::filesystem::path& path() const { return path_; }

    enum class Existing { Keep, Replace };
    /// Gives the file its name; it survives a power loss from here on.
    /// @throws CommandError 1 when there is a file of that name that is to be kept, or the disk fails.
    void keep(Existing existing);

private:
    std::filesystem::path target_;
    std::filesystem::path path_;
    int descriptor_;
    bool kept_ = false;
};

} // namespace velto
