#include "config/SettingsFaults.h"

#include "base/Text.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>

namespace qz::config {

namespace {

constexpr auto kError = SettingsFault::Weight::Error;
constexpr auto kWarning = SettingsFault::Weight::Warning;
constexpr std::size_t kMostMistakes = 3;
constexpr std::size_t kLongestName = 60; // of one that is compared; no known name comes near

/// How many characters were left out, added, replaced, or changed places with their neighbour.
std::size_t mistakes(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> before;
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        auto next = row;
        next[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            next[j] = (std::min)({row[j] + 1, next[j - 1] + 1, row[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                next[j] = (std::min)(next[j], before[j - 2] + 1);
            }
        }
        before = std::exchange(row, std::move(next));
    }
    return row.back();
}

/// Looks for the known name that a given one may stand for.
class Nearest {
public:
    explicit Nearest(std::string_view given) : given_(lower(given)) { }

    /// @return whether the name is nearer than all before it, and near enough to be meant.
    bool is_nearer(std::string_view known)
    {
        const auto most = (std::clamp)(known.size() / 3, std::size_t{1}, kMostMistakes);
        if (given_.empty() || given_.size() > kLongestName) {
            return false;
        }
        const auto number = mistakes(given_, lower(known));
        if (number > most || (fewest_ && number >= *fewest_)) {
            return false;
        }
        fewest_ = number;
        return true;
    }

private:
    std::string given_;
    std::optional<std::size_t> fewest_;
};

/// The section of settings with this name, or with one that resembles it; empty when there is none.
std::string_view section_near(std::string_view name)
{
    std::string_view found;
    Nearest nearest(name);
    for (const auto& row : setting_table()) {
        if (row.section != found && !is_kept_by_engine(row.section) && nearest.is_nearer(row.section)) {
            found = row.section;
        }
    }
    return found;
}

const SettingRow* setting_near(std::string_view section, std::string_view key)
{
    const SettingRow* found = nullptr;
    Nearest nearest(key);
    for (const auto& row : setting_table()) {
        if (equal_ignoring_case(row.section, section) && nearest.is_nearer(row.key)) {
            found = &row;
        }
    }
    return found;
}

/// Whether a line that is no entry begins with the key.
bool begins_with_key(std::string_view line, std::string_view key)
{
    constexpr std::string_view kOfNames = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
    return line.size() >= key.size() && equal_ignoring_case(line.substr(0, key.size()), key)
        && (line.size() == key.size() || kOfNames.find(line[key.size()]) == std::string_view::npos);
}

std::string_view first_word(std::string_view line)
{
    return line.substr(0, line.find_first_of(" \t:="));
}

std::string_view without(std::string_view characters, std::string_view text)
{
    const auto first = text.find_first_not_of(characters);
    return first == std::string_view::npos
        ? std::string_view{}
        : text.substr(first, text.find_last_not_of(characters) - first + 1);
}

/// As other programs write comments.
bool resembles_comment(std::string_view line)
{
    return line.starts_with('#') || line.starts_with("//");
}

std::string in_brackets(std::string_view section)
{
    return "[" + std::string(section) + "]";
}

class Inspection {
public:
    std::vector<SettingsFault> of(const IniDocument& document)
    {
        for (const auto& line : document.lines()) {
            switch (line.kind) {
            case IniLine::Kind::Header:
                look_at_header(line);
                break;
            case IniLine::Kind::Entry:
                look_at_entry(line);
                break;
            case IniLine::Kind::Neither:
                look_at_other(line);
                break;
            }
        }
        return std::move(faults_);
    }

private:
    /// Whose section it is.
    enum class Place {
        AboveAll,
        Settings,
        Misspelt, // its name resembles one of settings
        Engine,
        Others,
    };
    struct Seen {
        std::size_t line;
        std::string_view value;
    };

    void add(SettingsFault::Weight weight, const IniLine& line, std::string text,
        std::vector<const SettingRow*> meant = {})
    {
        faults_.push_back({weight, line.number, std::string(line.section), std::string(line.key),
            std::move(text), std::move(meant)});
    }

    void look_at_header(const IniLine& line)
    {
        const auto name = line.section;
        near_ = is_kept_by_engine(name) ? std::string_view{} : section_near(name);
        place_ = is_kept_by_engine(name)       ? Place::Engine
            : near_.empty()                    ? Place::Others
            : equal_ignoring_case(near_, name) ? Place::Settings
                                               : Place::Misspelt;
        if (place_ == Place::Misspelt) {
            add(kError, line,
                "no such section, so nothing in it is read; " + in_brackets(near_)
                    + " is meant? Correct the name, or give the section another one");
            misspelt_ = faults_.size() - 1;
        }
        const auto behind = line.text;
        if (place_ != Place::Engine && !behind.empty() && !behind.starts_with(';')
            && !resembles_comment(behind)) {
            const auto* const row = setting_begun_by(behind, near_);
            add(near_.empty() ? kWarning : kError, line,
                "what stands behind the \"]\" is not read; put it on a line of its own", meant_by(row));
        }
    }

    void look_at_entry(const IniLine& line)
    {
        switch (place_) {
        case Place::Settings:
            if (const auto* const row = find_setting(line.section, line.key)) {
                look_at_setting(line, *row);
            } else {
                look_at_unknown(line);
            }
            break;
        case Place::Misspelt:
            if (const auto* const row = find_setting(near_, line.key)) {
                faults_[misspelt_].meant.push_back(row);
            }
            break;
        case Place::AboveAll:
        case Place::Others:
            look_at_unknown(line);
            break;
        case Place::Engine:
            break;
        }
    }

    void look_at_setting(const IniLine& line, const SettingRow& row)
    {
        const auto [seen, is_first] = seen_.try_emplace(&row, Seen{line.number, line.text});
        if (!is_first) {
            const bool same = seen->second.value == line.text;
            add(same ? kWarning : kError, line,
                "is there twice, in line " + std::to_string(seen->second.line) + " and in line "
                    + std::to_string(line.number)
                    + (same ? "; remove one of them" : ", with different values; remove the wrong one"),
                {&row});
        } else if (!line.effective) {
            add(kError, line,
                "is not read: there is a section " + in_brackets(line.section)
                    + " above this one, and only the first counts; move the entry there",
                {&row});
        }
        if (line.effective && line.text.empty()) {
            if (auto complaint = complaint_about_empty(row)) {
                add(kError, line, *std::move(complaint), {&row});
            }
        }
    }

    void look_at_unknown(const IniLine& line)
    {
        const bool is_comment = resembles_comment(line.key);
        const auto key = is_comment ? without("#/ \t", line.key) : line.key;
        if (const auto* const row = setting_meant(key)) {
            add(kError, line,
                is_comment ? kNoComment
                    : equal_ignoring_case(row->key, key)
                    ? "does not stand in its section " + in_brackets(row->section) + "; move it there"
                    : "no such setting; " + std::string(row->key)
                        + " is meant? Correct the key, or remove it",
                {row});
        } else if (is_comment) {
            add(kWarning, line, kNoComment);
        } else {
            add(is_protecting(line.section) ? kError : kWarning, line,
                "no such setting; look for a misspelling, or remove it");
        }
    }

    /// The setting that a key stands for which its place does not have.
    const SettingRow* setting_meant(std::string_view key) const
    {
        if (place_ == Place::Settings) {
            if (const auto* const row = find_setting(near_, key)) { // behind the mark of a comment
                return row;
            }
        }
        if (const auto* const row = misplaced_setting(
                [&](const SettingRow& each) { return equal_ignoring_case(each.key, key); })) {
            return row;
        }
        if (place_ == Place::Settings) {
            return setting_near(near_, key);
        }
        return place_ == Place::AboveAll ? setting_near("Safeguards", key) : nullptr;
    }

    /// A setting that protects, and above all sections any other, is missed where it belongs. In a section
    /// of others only a safeguard is: names like Port and Provider may be theirs.
    template <typename Rule> const SettingRow* misplaced_setting(const Rule& rule) const
    {
        for (const auto& row : setting_table()) {
            const bool is_missed = place_ == Place::AboveAll || row.section == "Safeguards"
                || (place_ == Place::Settings && (is_protecting(row.section) || is_protecting(near_)));
            if (is_missed && !is_kept_by_engine(row.section) && rule(row)) {
                return &row;
            }
        }
        return nullptr;
    }

    const SettingRow* setting_begun_by(std::string_view line, std::string_view section) const
    {
        for (const auto& row : setting_table()) {
            if (equal_ignoring_case(row.section, section) && begins_with_key(line, row.key)) {
                return &row;
            }
        }
        if (const auto* const row = setting_near(section, first_word(line))) {
            return row;
        }
        return misplaced_setting([&](const SettingRow& row) { return begins_with_key(line, row.key); });
    }

    void look_at_other(const IniLine& line)
    {
        constexpr std::string_view kBrackets = "[]{}()<>";
        const auto name = section_near(without("[]{}()<> \t", line.text));
        const bool has_bracket = line.text.find_first_of(kBrackets) != std::string_view::npos;
        if (line.text.starts_with('[') || (has_bracket && !name.empty())) {
            add(kError, line,
                "the line is no section header, so what follows counts to "
                    + (line.section.empty() ? "no section" : in_brackets(line.section)) + "; write "
                    + in_brackets(name.empty() ? "NAME" : name));
            return;
        }
        if (place_ == Place::Engine || place_ == Place::Others || place_ == Place::Misspelt) {
            return; // is told of the whole section, or is the business of others
        }
        const bool is_comment = resembles_comment(line.text);
        const auto content = is_comment ? without("#/ \t", line.text) : line.text;
        const auto* const row = setting_begun_by(content, near_);
        if (is_comment) {
            add(row == nullptr ? kWarning : kError, line, kNoComment, meant_by(row));
        } else if (row != nullptr) {
            add(kError, line,
                "the line has no \"=\", so it sets nothing; write " + std::string(row->key) + "=VALUE",
                {row});
        } else {
            add(is_protecting(line.section) ? kError : kWarning, line,
                "the line is neither an entry, KEY=VALUE, nor a comment, which begins with \";\"; correct "
                "it, or remove it");
        }
    }

    static std::vector<const SettingRow*> meant_by(const SettingRow* row)
    {
        return row == nullptr ? std::vector<const SettingRow*>() : std::vector{row};
    }

    static constexpr const char* kNoComment =
        "is no comment, for comments begin with \";\"; begin it so, or remove it";

    std::vector<SettingsFault> faults_;
    Place place_ = Place::AboveAll;
    std::string_view near_;    // the section of settings that is meant; empty for none
    std::size_t misspelt_ = 0; // where the fault of the present section stands
    std::map<const SettingRow*, Seen> seen_;
};

} // namespace

std::vector<SettingsFault> faults_in(const IniDocument& document)
{
    return Inspection().of(document);
}

std::optional<std::string> error_about(const SettingRow& row, std::span<const SettingsFault> faults)
{
    for (const auto& fault : faults) {
        const auto& meant = fault.meant;
        if (fault.weight == kError && std::find(meant.begin(), meant.end(), &row) != meant.end()) {
            return "line " + std::to_string(fault.line) + ": " + fault.text;
        }
    }
    return std::nullopt;
}

} // namespace qz::config
