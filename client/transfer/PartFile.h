// A file that is being received: it grows as NAME.part, beside it stands NAME.part.info, which tells what it
// is the beginning of, and it gets its name when it is whole.
#pragma once

#include "client/Descriptor.h"
#include "client/transfer/Conversation.h"

#include <filesystem>
#include <memory>
#include <string>
#include <variant>

namespace qz::client::transfer {

class PartFile final : public FileSink {
public:
    struct Offered {
        std::string from;
        std::string name; // safe
        std::uint64_t size = 0;
    };
    /// Goes on with what is left of the same offer, or begins a new file under a name that nobody uses.
    /// @return also why it cannot be: no such folder, no room, nothing may be written.
    static std::variant<std::unique_ptr<PartFile>, Ending> open(
        const std::filesystem::path& folder, const Offered& offered);
    /// A part without a byte is of no use to anybody and goes.
    ~PartFile() override;

    std::uint64_t size() const override { return size_; }
    bool read(std::uint64_t at, std::span<char> buffer) override;
    std::optional<Outcome> append(std::string_view bytes) override;
    std::optional<Outcome> restart() override;
    std::optional<Outcome> commit() override;
    void discard() override;

    /// Where the complete file stands; empty before.
    const std::filesystem::path& path() const { return path_; }

private:
    PartFile(std::filesystem::path folder, Offered offered, std::filesystem::path part);
    std::optional<Ending> open_part(bool goes_on);
    std::optional<Ending> check_room() const;
    std::filesystem::path info() const;

    std::filesystem::path folder_;
    Offered offered_;
    std::filesystem::path part_;
    Descriptor file_;
    std::uint64_t size_ = 0;
    std::uint64_t flushed_ = 0; // bytes that the system was asked to write out
    bool is_gone_ = false;      // renamed or removed
    std::filesystem::path path_;
};

} // namespace qz::client::transfer
