#include "config/IniFile.h"

#include "base/Guarded.h"

#include <utility>

namespace qz::config {

namespace {

constexpr auto kPermissions = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write
    | std::filesystem::perms::group_read;

} // namespace

/// Brings what is kept up to date with the file. Only a stamp that was settled when the bytes were read can
/// vouch for them; otherwise they are read again, and parsed again when they differ.
void IniFile::refresh() const
{
    if (kept_ && kept_->content.settled && file_.stamp() == kept_->content.stamp) {
        return;
    }
    auto content = file_.read();
    if (!content) {
        forget();
        return;
    }
    if (kept_ && kept_->content.bytes == content->bytes) {
        kept_->content = *std::move(content);
        return;
    }
    IniDocument document(content->bytes);
    ++generation_;
    kept_ = Kept{*std::move(content), std::move(document)};
}

void IniFile::forget() const
{
    if (std::exchange(kept_, std::nullopt)) {
        ++generation_;
    }
}

/// Nothing when there is no file or it cannot be read.
const IniDocument* IniFile::current() const
{
    if (kept_ && looks_ > 0 && looked_) {
        return &kept_->document;
    }
    if (!attempt([&] { refresh(); })) {
        forget();
    }
    looked_ = true;
    return kept_ ? &kept_->document : nullptr;
}

std::uint64_t IniFile::generation() const
{
    current();
    return generation_;
}

std::string IniFile::ReadIniValue(std::string_view section, std::string_view key) const
{
    const IniDocument* const document = current();
    return document == nullptr ? std::string() : document->read(section, key);
}

bool IniFile::WriteIniValue(std::string_view section, std::string_view key, std::string_view value)
{
    bool named = false;
    return edit([&](IniDocument& document) { named = document.write(section, key, value); }) && named;
}

bool IniFile::DeleteIniEntry(std::string_view section, std::string_view key)
{
    const std::string name = StripSectionBrackets(section);
    return edit([&](IniDocument& document) {
        if (key.empty()) {
            document.remove_section(name);
        } else {
            document.remove(name, key);
        }
    });
}

bool IniFile::edit(const std::function<void(IniDocument&)>& change)
{
    std::optional<platform::FileLock> lock;
    // A file that is there but cannot be read must not be taken for an empty one and replaced.
    if (!attempt([&] {
            lock.emplace(file_.lock());
            refresh();
        })) {
        return false;
    }
    // Taken, not copied: the next access reads the replaced file anyway.
    Kept kept = kept_ ? *std::move(kept_) : Kept();
    forget();
    change(kept.document);
    const std::string bytes = kept.document.bytes();
    return bytes == kept.content.bytes
        || attempt([&] { platform::AtomicFile::replace(*lock, bytes, kPermissions); });
}

std::vector<IniEntry> IniFile::entries() const
{
    const IniDocument* const document = current();
    return document == nullptr ? std::vector<IniEntry>() : document->entries();
}

void IniFile::require_readable() const
{
    refresh();
}

} // namespace qz::config
