// A tar archive that is written file by file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct archive;

namespace velto {

/// Every operation throws CommandError 1 when the archive cannot be written.
class Archive {
public:
    /// @param descriptor  of the open file to write to; stays open.
    /// @param name        of that file, for messages.
    Archive(int descriptor, std::string name);
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;
    ~Archive();

    /// Adds what is given as a file of this name, with owner and permissions of the one that it stands for.
    void add(const std::string& name, const std::filesystem::path& stands_for, std::string_view bytes);
    /// Adds the bytes of a file.
    /// @param progress  called now and then with bytes done and bytes in all, ends the work by throwing.
    void add_file(const std::string& name, const std::filesystem::path& stands_for,
        const std::filesystem::path& file,
        const std::function<void(std::int64_t done, std::int64_t total)>& progress);
    void finish();

private:
    void begin(const std::string& name, const std::filesystem::path& stands_for, std::int64_t size);
    void put(std::string_view bytes);
    void check(std::int64_t code);

    struct Closer {
        void operator()(archive* handle) const;
    };
    std::string name_;
    std::unique_ptr<archive, Closer> archive_;
};

} // namespace velto
