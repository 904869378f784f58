// The server's settings file as the engine sees it: read anew at every access, replaced whole at every
// change, shared with other processes and with people who edit it by hand.
#pragma once

#include "config/IniDocument.h"
#include "platform/AtomicFile.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qz::config {

/// The rules of names and values are those of IniDocument. No operation fails for the sake of the file: what
/// cannot be read reads as empty, what cannot be written gives false and leaves the file as it was.
/// To be used by one thread.
class IniFile {
public:
    explicit IniFile(std::filesystem::path path) : file_(std::move(path)) { }

    /// While it lives, reading looks at the file once, not at every access. For the length of one turn of the
    /// loop, whose every event asks for a dozen settings: a look is a system call.
    class OneLook {
    public:
        explicit OneLook(const IniFile& file) : file_(file)
        {
            ++file_.looks_;
            file_.looked_ = false;
        }
        ~OneLook() { --file_.looks_; }
        OneLook(const OneLook&) = delete;
        OneLook& operator=(const OneLook&) = delete;

    private:
        const IniFile& file_;
    };

    const std::filesystem::path& path() const { return file_.path(); }

    /// A number that stays the same, and is not 0, as long as all values do: who has kept one with it need
    /// not read it again.
    std::uint64_t generation() const;

    std::string ReadIniValue(std::string_view section, std::string_view key) const;
    bool WriteIniValue(std::string_view section, std::string_view key, std::string_view value);
    /// Removes the entry, or the whole section when the key is empty. The section may stand in brackets.
    bool DeleteIniEntry(std::string_view section, std::string_view key);

    /// Makes many changes as one replacement of the file, under a lock that keeps other writers out. When the
    /// changes come to nothing the file is left alone.
    /// @param change  may read through its argument and this object, but not start another edit.
    bool edit(const std::function<void(IniDocument&)>& change);

    /// All entries, in the order of the file.
    std::vector<IniEntry> entries() const;
    /// @throws EngineError saying why, when there is a file that cannot be read.
    void require_readable() const;

private:
    /// The file as it was read last.
    struct Kept {
        platform::FileContent content;
        IniDocument document;
    };

    const IniDocument* current() const;
    void refresh() const;
    void forget() const;

    platform::AtomicFile file_;
    mutable std::optional<Kept> kept_;
    mutable std::uint64_t generation_ = 1;
    mutable int looks_ = 0; // how many OneLook there are
    mutable bool looked_ = false;
};

/// A value that is made of settings, kept as long as the settings stay what they are.
template <typename Value> class KeptValue {
public:
    template <typename Read> const Value& get(const IniFile& ini, Read read)
    {
        const auto generation = ini.generation();
        if (generation != generation_) {
            value_ = read();
            generation_ = generation;
        }
        return value_;
    }

private:
    std::uint64_t generation_ = 0;
    Value value_{};
};

} // namespace qz::config
