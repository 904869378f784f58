#include "Findings.h"

#include "base/Text.h"
#include "common/Console.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

namespace velto {

namespace {

const char* word_of(Findings::Weight weight)
{
    return weight == Findings::Weight::Error ? "error" : "warning";
}

} // namespace

void Findings::add(Weight weight, std::string_view section, std::string_view key, const std::string& text)
{
    findings_.push_back(
        {weight, home_.settings_file().string(), std::string(section), std::string(key), text});
}

void Findings::add(Weight weight, const qz::config::SettingRow& row, const std::string& text)
{
    add(weight, row.section, row.key, text);
}

void Findings::add(const qz::config::SettingsFault& fault)
{
    const bool is_error = fault.weight == qz::config::SettingsFault::Weight::Error;
    add(is_error ? Weight::Error : Weight::Warning, fault.section, fault.key,
        "line " + std::to_string(fault.line) + ": " + fault.text);
}

void Findings::add(Weight weight, const std::filesystem::path& file, const std::string& text)
{
    findings_.push_back({weight, file.string(), {}, {}, text});
}

std::size_t Findings::count(Weight weight) const
{
    return static_cast<std::size_t>(std::count_if(findings_.begin(), findings_.end(),
        [&](const Finding& finding) { return finding.weight == weight; }));
}

std::string Findings::line(const Finding& finding)
{
    auto place = finding.file;
    if (!finding.section.empty()) {
        place += " [" + finding.section + "]";
    }
    if (!finding.key.empty()) {
        place += " " + finding.key;
    }
    return place + ": " + finding.text;
}

void Findings::write_to(HostLog& log) const
{
    for (const auto& finding : findings_) {
        log.write(finding.weight == Weight::Error ? LogLevel::Error : LogLevel::Warning, line(finding));
    }
}

void Findings::print() const
{
    for (const auto& finding : findings_) {
        std::cout << word_of(finding.weight) << ": " << qz::printable(line(finding)) << "\n";
    }
    const auto errors = count(Weight::Error);
    const auto warnings = count(Weight::Warning);
    if (findings_.empty()) {
        std::cout << "ok: " << home_.folder().string() << "\n";
    } else {
        std::cout << errors << (errors == 1 ? " error, " : " errors, ") << warnings
                  << (warnings == 1 ? " warning\n" : " warnings\n");
    }
}

void Findings::print_as_json() const
{
    auto all = nlohmann::ordered_json::array();
    for (const auto& finding : findings_) {
        all.push_back({{"kind", word_of(finding.weight)}, {"file", finding.file},
            {"section", finding.section}, {"key", finding.key}, {"text", finding.text}});
    }
    print_json({{"home", home_.folder().string()}, {"errors", count(Weight::Error)},
        {"warnings", count(Weight::Warning)}, {"findings", all}});
}

Exit Findings::conclude(bool json) const
{
    if (json) {
        print_as_json();
    } else {
        print();
    }
    return count(Weight::Error) > 0 ? Exit::Configuration : Exit::Done;
}

} // namespace velto
