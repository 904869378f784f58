// A file of the disk that is sent.
#pragma once

#include "client/Descriptor.h"
#include "client/transfer/Conversation.h"

#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <variant>

namespace qz::client::transfer {

class SourceFile final : public FileSource {
public:
    /// Opens an ordinary file; anything else, such as a folder or a device, cannot be read.
    static std::variant<std::unique_ptr<SourceFile>, Ending> open(const std::filesystem::path& path);

    std::uint64_t size() const override { return static_cast<std::uint64_t>(opened_.st_size); }
    bool read(std::uint64_t at, std::span<char> buffer) override;
    bool is_unchanged() const override;

private:
    SourceFile(Descriptor file, const struct stat& opened) : file_(std::move(file)), opened_(opened) { }

    Descriptor file_;
    struct stat opened_; // what was known of it then
};

/// Fills the buffer; false when the file is too short or cannot be read.
bool read_whole(const Descriptor& file, std::uint64_t at, std::span<char> buffer);

/// The system's sentence for an error number.
std::string system_text(int error);

} // namespace qz::client::transfer
