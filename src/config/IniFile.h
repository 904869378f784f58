// The server's settings file as the engine sees it: looked at anew at every access, replaced whole at every
// change, shared with other processes and with people who edit it by hand.
#pragma once

#include "base/Clock.h"
#include "config/IniDocument.h"
#include "platform/AtomicFile.h"

#include <chrono>
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
///
/// With a clock the file is that of a running server, and two things change.
/// Nothing waits for the file's lock: what WriteIniValue and DeleteIniEntry cannot write at once is in force
/// in memory at once, and in the file with a later call of write_waiting.
/// And once a document with a section of a deployment (Safeguards, Transport, Storage) is in force, a change
/// that this object did not make counts only when the file is readable, holds together (does not break off
/// before settings that were in force), and has stood still for two seconds; until then, and whatever happens
/// to the file, the last good document stays in force. A new file under the name may be one that its editor
/// is still writing, so it makes no difference; only what another IniFile wrote counts at once.
class IniFile {
public:
    /// Time for which a file must not have changed before what others wrote counts.
    static constexpr std::chrono::seconds kStillness{2};

    enum class Access { ReadWrite, Read };

    /// Of a command.
    /// @param access  Read: every write gives false.
    explicit IniFile(std::filesystem::path path, Access access = Access::ReadWrite)
        : file_(std::move(path)), access_(access)
    {
    }
    /// Of a running server.
    /// @param clock  must outlive the object.
    IniFile(std::filesystem::path path, const Clock& clock) : file_(std::move(path)), clock_(&clock) { }

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

    using Change = std::function<void(IniDocument&)>;
    /// Makes many changes as one replacement of the file, under a lock that keeps other writers out. When the
    /// changes come to nothing the file is left alone.
    /// @param change  may read through its argument and this object, but not start another edit.
    /// @return false when nothing was changed, in memory neither.
    bool edit(const Change& change, platform::Flush flush = platform::Flush::Wait);

    enum class Patience { None, Some }; // some: a few seconds for the lock
    /// Writes what could not be written when it was set.
    /// @return true when nothing is left of it.
    bool write_waiting(Patience patience = Patience::None);

    /// Writes the document in force where the file has been missing for kStillness.
    /// @return true when it did.
    bool restore_missing();

    /// Why the file is not what is in force.
    struct Trouble {
        std::string text;
        std::chrono::steady_clock::time_point since;
    };
    /// As of the last access.
    const std::optional<Trouble>& trouble() const { return trouble_; }
    /// False also while a change by others has not stood still for long enough.
    bool is_in_force() const { return !trouble_ && !candidate_; }

    /// All entries, in the order of the file.
    std::vector<IniEntry> entries() const;
    /// What is in force: that of an empty file where there is none. Good until the next access.
    const IniDocument& document() const;
    /// @throws EngineError saying why, when there is a file that cannot be read.
    void require_readable() const;

private:
    /// The document in force and the file that it came from.
    struct Kept {
        platform::FileContent content;
        IniDocument document; // of the content, with the changes that wait
        bool guarded = false; // has a section of a deployment
    };
    /// A file whose content is not in force.
    struct Candidate {
        platform::FileStamp stamp;
        std::chrono::steady_clock::time_point since;
        bool refused = false;
    };
    struct WaitingChange {
        std::string section;
        std::string key;                  // empty: the whole section
        std::optional<std::string> value; // nothing: the entry goes
    };
    enum class Outcome { Written, Later, Refused };

    static bool apply(const WaitingChange& change, IniDocument& document);
    const IniDocument* current() const;
    void refresh() const;
    void take(platform::FileContent content) const;
    void forget() const;
    bool is_guarded() const { return clock_ != nullptr && kept_ && kept_->guarded; }
    void changed() const;
    void consider() const;
    void consider(platform::FileContent content) const;
    std::optional<std::string> fault_of(const platform::FileContent& content) const;
    void set_trouble(std::string text, std::chrono::steady_clock::time_point since) const;
    bool is_missing_for_good() const;
    bool may_replace() const;
    void let_editor_finish() const;
    Outcome try_edit(const Change& change, platform::Flush flush, Patience patience);
    bool change_entry(WaitingChange change);
    std::optional<platform::FileLock> lock(Patience patience) const;
    Outcome replace(const platform::FileLock& lock, const std::string& bytes, platform::Flush flush);

    platform::AtomicFile file_;
    Access access_ = Access::ReadWrite;
    const Clock* clock_ = nullptr;
    mutable std::optional<Kept> kept_;
    mutable std::optional<Candidate> candidate_;
    mutable std::optional<Trouble> trouble_;
    mutable bool missing_ = false; // the trouble is that there is no file
    std::vector<WaitingChange> waiting_;
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
