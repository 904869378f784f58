// What is wrong with the lines of a settings file: a mistake is told, and never taken for the wish to switch
// something off.
#pragma once

#include "config/IniDocument.h"
#include "config/SettingTable.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qz::config {

struct SettingsFault {
    enum class Weight {
        Warning,
        Error, // the server would not do what the file was meant to say
    };
    Weight weight;
    std::size_t line;    // from 1
    std::string section; // as they stand in the file; empty where there is none
    std::string key;
    std::string text;                     // what is wrong and what to do, for people
    std::vector<const SettingRow*> meant; // settings that the line may have been meant for
};

/// Entries without a value, lines that are no entry, keys and sections that are misspelt, in the wrong place
/// or there twice. Values are judged by complaint_about, once they are decoded.
/// Names that resemble none of the known ones are errors in protecting_sections(), elsewhere warnings: other
/// programs and versions may have entries of their own there.
std::vector<SettingsFault> faults_in(const IniDocument& document);

/// What keeps the file from saying what the setting is to be: the first error among the faults, with its
/// line.
std::optional<std::string> error_about(const SettingRow& row, std::span<const SettingsFault> faults);

} // namespace qz::config
