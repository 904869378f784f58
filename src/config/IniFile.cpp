#include "config/IniFile.h"

#include "base/EngineError.h"
#include "base/Guarded.h"
#include "base/Text.h"
#include "config/SettingTable.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <set>
#include <thread>
#include <utility>

namespace qz::config {

namespace {

constexpr auto kPermissions = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write
    | std::filesystem::perms::group_read;

std::string_view strip(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t\r\n";
    const auto first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos ? std::string_view{}
                                           : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view last_line(std::string_view text)
{
    text = strip(text);
    const auto before = text.rfind('\n');
    return strip(before == std::string_view::npos ? text : text.substr(before));
}

bool has_line(std::string_view text, std::string_view line)
{
    while (!text.empty()) {
        const auto end = (std::min)(text.find('\n'), text.size());
        if (strip(text.substr(0, end)) == line) {
            return true;
        }
        text.remove_prefix((std::min)(end + 1, text.size()));
    }
    return false;
}

/// Without the entry the server would be more open. The engine adds other entries by itself, which an editor
/// that has had the file open does not know.
bool is_missed(const IniLine& entry)
{
    return is_protecting(entry.section)
        || (equal_ignoring_case(entry.section, "Policy")
            && entry.text == helpers::protocol_keywords().FalseKeyword);
}

/// The first of the settings that stood in the last part of a file, when the later content lacks that part
/// and has nothing new in its place: a copy or an editor broke off there.
std::optional<std::string> setting_cut_off(std::string_view before, std::string_view after)
{
    if (!has_line(before, last_line(after))) {
        return std::nullopt;
    }
    const IniDocument old_document(before);
    const IniDocument new_document(after);
    std::set<std::string> left;
    for (const auto& line : new_document.lines()) {
        if (line.kind == IniLine::Kind::Entry) {
            left.insert(lower(line.section) + "\n" + lower(line.key));
        }
    }
    std::optional<std::string> cut;
    const auto lines = old_document.lines();
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const bool is_entry = line->kind == IniLine::Kind::Entry;
        if (is_entry ? left.contains(lower(line->section) + "\n" + lower(line->key))
                     : line->kind == IniLine::Kind::Header && new_document.has_section(line->section)) {
            break;
        }
        if (is_entry && is_missed(*line)) {
            cut = "[" + std::string(line->section) + "] " + std::string(line->key);
        }
    }
    return cut;
}

} // namespace

// ---- The document in force ----

/// Brings what is kept up to date with the file. Only a stamp that was settled when the bytes were read can
/// vouch for them; otherwise they are read again, and parsed again when they differ.
void IniFile::refresh() const
{
    if (is_guarded()) {
        if (!attempt([&] { consider(); })) {
            candidate_.reset();
            missing_ = false;
        }
        return;
    }
    if (kept_ && kept_->content.settled && file_.stamp() == kept_->content.stamp) {
        return;
    }
    auto content = file_.read();
    if (!content) {
        forget();
    } else if (kept_ && kept_->content.bytes == content->bytes) {
        kept_->content = *std::move(content);
    } else {
        take(*std::move(content));
    }
}

/// Puts the content in force, with the changes that wait.
void IniFile::take(platform::FileContent content) const
{
    IniDocument document(content.bytes);
    for (const auto& change : waiting_) {
        apply(change, document);
    }
    kept_ = Kept{std::move(content), std::move(document)};
    changed();
    candidate_.reset();
    trouble_.reset();
}

void IniFile::forget() const
{
    if (!waiting_.empty()) {
        take({});
    } else if (std::exchange(kept_, std::nullopt)) {
        ++generation_;
    }
}

/// The document in force is another one.
void IniFile::changed() const
{
    ++generation_;
    const auto sections = protecting_sections();
    kept_->guarded = std::any_of(sections.begin(), sections.end(),
        [&](std::string_view section) { return kept_->document.has_section(section); });
}

/// Looks at the file without being misled by it.
void IniFile::consider() const
{
    const auto now = clock_->steady();
    try {
        const auto stamp = file_.stamp();
        if (kept_->content.settled && stamp == kept_->content.stamp) {
            candidate_.reset();
            trouble_.reset();
            return;
        }
        if (candidate_ && stamp == candidate_->stamp
            && (candidate_->refused || now - candidate_->since < kStillness)) {
            return;
        }
        if (auto content = file_.read()) {
            consider(*std::move(content));
            return;
        }
        if (!missing_) {
            trouble_.reset(); // another one than before
        }
        set_trouble(path().string() + ": the file is missing", now);
        missing_ = true;
    } catch (const EngineError& error) {
        set_trouble(error.description(), now);
        missing_ = false;
    }
    candidate_.reset();
}

void IniFile::consider(platform::FileContent content) const
{
    const auto now = clock_->steady();
    if (kept_->content.bytes == content.bytes) {
        kept_->content = std::move(content);
        candidate_.reset();
        trouble_.reset();
    } else if (!content.is_sealed() && (!candidate_ || !(candidate_->stamp == content.stamp))) {
        candidate_ = {content.stamp, now};
    } else if (const auto fault = fault_of(content)) {
        candidate_ = {content.stamp, candidate_ ? candidate_->since : now, true};
        trouble_.reset(); // another one than before
        set_trouble(path().string() + ": " + *fault, candidate_->since);
        missing_ = false;
    } else {
        take(std::move(content));
    }
}

/// Says why the content cannot be what somebody meant.
std::optional<std::string> IniFile::fault_of(const platform::FileContent& content) const
{
    const auto& bytes = content.bytes;
    if (bytes.empty()) {
        return "the file is empty";
    }
    if (bytes.find('\0') != std::string::npos) {
        return "the file is not a text";
    }
    if (kept_->content.bytes.ends_with('\n') && !bytes.ends_with('\n')) {
        return "the file ends within a line, as one does that was not written to its end";
    }
    const IniDocument document(bytes);
    for (const auto section : protecting_sections()) {
        if (kept_->document.has_section(section) && !document.has_section(section)) {
            return "the section [" + std::string(section)
                + "] is gone; leave its header to take everything out of it";
        }
    }
    if (!content.is_sealed()) { // what we have written is whole
        if (const auto cut = setting_cut_off(kept_->content.bytes, bytes)) {
            return "the file ends before " + *cut
                + ", as one does that was not written to its end; to switch that off, write an entry that "
                  "says so";
        }
    }
    return std::nullopt;
}

void IniFile::set_trouble(std::string text, std::chrono::steady_clock::time_point since) const
{
    if (!trouble_) {
        trouble_ = Trouble{{}, since};
    }
    trouble_->text = std::move(text);
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

// ---- Reading ----

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

std::vector<IniEntry> IniFile::entries() const
{
    const IniDocument* const document = current();
    return document == nullptr ? std::vector<IniEntry>() : document->entries();
}

const IniDocument& IniFile::document() const
{
    static const IniDocument kNone;
    const IniDocument* const document = current();
    return document == nullptr ? kNone : *document;
}

void IniFile::require_readable() const
{
    refresh();
}

// ---- Writing ----

bool IniFile::WriteIniValue(std::string_view section, std::string_view key, std::string_view value)
{
    return change_entry({std::string(section), std::string(key), std::string(value)});
}

bool IniFile::DeleteIniEntry(std::string_view section, std::string_view key)
{
    return change_entry({StripSectionBrackets(section), std::string(key), std::nullopt});
}

/// @return false when the names cannot be those of an entry.
bool IniFile::apply(const WaitingChange& change, IniDocument& document)
{
    if (change.value) {
        return document.write(change.section, change.key, *change.value);
    }
    if (change.key.empty()) {
        document.remove_section(change.section);
    } else {
        document.remove(change.section, change.key);
    }
    return true;
}

bool IniFile::change_entry(WaitingChange change)
{
    bool named = false;
    const auto outcome = try_edit([&](IniDocument& document) { named = apply(change, document); },
        platform::Flush::Wait, Patience::None);
    if (outcome != Outcome::Later || clock_ == nullptr) {
        return outcome == Outcome::Written && named;
    }
    if (!kept_) {
        kept_.emplace();
    }
    if (!apply(change, kept_->document)) {
        return false;
    }
    changed();
    std::erase_if(waiting_, [&](const WaitingChange& each) {
        return equal_ignoring_case(each.section, change.section)
            && (change.key.empty() || equal_ignoring_case(each.key, change.key));
    });
    waiting_.push_back(std::move(change));
    return true;
}

bool IniFile::edit(const Change& change, platform::Flush flush)
{
    return try_edit(change, flush, Patience::None) == Outcome::Written;
}

bool IniFile::write_waiting(Patience patience)
{
    if (!waiting_.empty()) {
        try_edit([](IniDocument& /*document*/) {}, platform::Flush::Wait, patience);
    }
    return waiting_.empty();
}

bool IniFile::restore_missing()
{
    if (!is_missing_for_good()) {
        return false;
    }
    return try_edit([](IniDocument& /*document*/) {}, platform::Flush::Wait, Patience::None)
        == Outcome::Written;
}

/// An editor may take a file away for a moment while it saves.
bool IniFile::is_missing_for_good() const
{
    return trouble_ && missing_ && clock_->steady() - trouble_->since >= kStillness;
}

std::optional<platform::FileLock> IniFile::lock(Patience patience) const
{
    return clock_ != nullptr && patience == Patience::None ? file_.try_lock() : std::optional(file_.lock());
}

/// A file that is not what is in force is somebody else's work, and not to be written over. One that is gone
/// for good is made again from what is in force.
bool IniFile::may_replace() const
{
    return !is_guarded() || is_missing_for_good() || (!candidate_ && !trouble_);
}

/// A command must not make a whole file of one that an editor has half written: it waits, two seconds at
/// most, until a file that somebody else has just changed stands still.
void IniFile::let_editor_finish() const
{
    constexpr int kTries = 40;
    constexpr std::chrono::milliseconds kPause(50);
    for (int tries = 0; tries < kTries; ++tries) {
        if (!kept_ || kept_->content.settled || kept_->content.is_sealed()) {
            return;
        }
        std::this_thread::sleep_for(kPause);
        refresh();
    }
}

IniFile::Outcome IniFile::try_edit(const Change& change, platform::Flush flush, Patience patience)
{
    if (access_ == Access::Read) {
        return Outcome::Refused;
    }
    std::optional<platform::FileLock> locked;
    // A file that is there but cannot be read must not be taken for an empty one and replaced.
    if (!attempt([&] {
            if (auto got = lock(patience)) {
                locked.emplace(*std::move(got));
            }
            refresh();
            if (clock_ == nullptr) {
                let_editor_finish();
            }
        })) {
        return is_guarded() ? Outcome::Later : Outcome::Refused;
    }
    if (!locked || !may_replace()) {
        return Outcome::Later;
    }
    if (!kept_) {
        kept_.emplace();
    }
    change(kept_->document);
    const std::string bytes = kept_->document.bytes();
    if (bytes == kept_->content.bytes && !trouble_) {
        waiting_.clear();
        return Outcome::Written;
    }
    const auto outcome = replace(*locked, bytes, flush);
    if (outcome != Outcome::Written) {
        take(std::move(kept_->content)); // without the change
    }
    return outcome;
}

IniFile::Outcome IniFile::replace(
    const platform::FileLock& lock, const std::string& bytes, platform::Flush flush)
{
    bool replaced = false;
    if (!attempt([&] { replaced = platform::AtomicFile::replace(lock, bytes, kPermissions, flush); })) {
        return Outcome::Refused;
    }
    if (!replaced) {
        return Outcome::Later;
    }
    changed();
    waiting_.clear();
    trouble_.reset();
    kept_->content = {bytes, {}, false}; // the next look reads it
    return Outcome::Written;
}

} // namespace qz::config
