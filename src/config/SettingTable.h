// Every setting that the server knows, for the people who set it: where it stands, what it may be, what it is
// when it is missing.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qz::config {

enum class SettingType {
    Text,
    Address, // IPv4 or IPv6 address, or "all"
    Integer,
    Boolean, // True or False, written exactly so: the interface's own
    Switch,  // true, yes, on, 1 or false, no, off, 0 in any letter case: those of a deployment
    Choice,
};

struct SettingRow {
    std::string_view section{};
    std::string_view key{};
    SettingType type = SettingType::Text;
    std::string_view missing{};     // what holds when there is no entry, in words
    std::string_view init{};        // written into a new settings file; empty for nothing
    std::string_view description{}; // one line for people
    std::int32_t minimum = 0;       // of an integer
    std::int32_t maximum = 0;
    std::string_view choices{}; // of a choice, parted by blanks
    bool encoded = false;       // stands in the file encoded by SettingsCipher
    bool secret = false;        // never to be shown
    bool served = true;         // false: the server knows the setting but does not act on it yet
};

/// All rows, those of one section together.
std::span<const SettingRow> setting_table();

/// Case does not count. Nothing when there is no such setting.
const SettingRow* find_setting(std::string_view section, std::string_view key);
/// @param name  section and key as one text: "Mail/Port".
const SettingRow* find_setting(std::string_view name);

/// Checks a value as it stands, or is to stand, in the file. About an empty one see below.
/// @return what is wrong and what is allowed, for people; nothing when the value is good. A secret is never
/// part of the message.
std::optional<std::string> complaint_about(const SettingRow& row, std::string_view value);

/// About an entry whose value is empty.
/// @return what to do instead, for people; nothing when the setting may be empty: a text outside of
/// protecting_sections().
std::optional<std::string> complaint_about_empty(const SettingRow& row);

/// The whole number that a value is, from its first character to its last, when it lies in the row's range.
std::optional<std::int32_t> integer_value(const SettingRow& row, std::string_view value);

/// What the value of a switch means; nothing when it is none of its words.
std::optional<bool> switch_value(std::string_view value);

/// Whether a row stands in a section that only deployments have.
bool is_of_deployment(const SettingRow& row);

/// The sections that only deployments have, with safeguards, limits and storage. Nobody else writes there,
/// and what is lost there leaves the server open.
std::span<const std::string_view> protecting_sections();
bool is_protecting(std::string_view section);

/// Whether the engine itself keeps entries there, by user names or whatever it likes.
bool is_kept_by_engine(std::string_view section);

} // namespace qz::config
