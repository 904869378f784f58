#include "config/IniDocument.h"

#include "base/Text.h"

#include <algorithm>
#include <utility>

namespace qz::config {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r\n";

std::string_view strip(std::string_view text)
{
    const auto first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos ? std::string_view{}
                                           : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool is_blank(std::string_view line)
{
    return strip(line).empty();
}

bool is_comment(std::string_view line)
{
    return strip(line).starts_with(';');
}

/// Name in a section's header; empty when the line is none.
std::string_view name_in_header(std::string_view line)
{
    const auto content = strip(line);
    const auto closing = content.find(']');
    return content.starts_with('[') && closing != std::string_view::npos
        ? strip(content.substr(1, closing - 1))
        : std::string_view{};
}

std::string_view without_quotes(std::string_view value)
{
    const bool quoted =
        value.size() >= 2 && value.front() == value.back() && (value.front() == '"' || value.front() == '\'');
    return quoted ? value.substr(1, value.size() - 2) : value;
}

/// What stands in a line from `at` on, without the blanks around it.
std::string_view strip_from(std::string_view line, std::size_t at)
{
    return strip(line.substr(at));
}

/// The line with another value; what stands before the value and the line end stay.
std::string with_value(std::string_view line, std::size_t at, std::string_view value)
{
    const auto old = strip_from(line, at);
    const auto end = line.find_last_not_of("\r\n") + 1; // a lone CR before it belongs to the value
    if (!old.empty()) {
        at = static_cast<std::size_t>(old.data() - line.data());
    }
    return std::string(line.substr(0, at)).append(value).append(line.substr(end));
}

bool is_hex_digit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// True when the two characters after the "%" at `at` would be read as an escape.
bool looks_escaped(std::string_view text, std::size_t at)
{
    return at + 2 < text.size() && is_hex_digit(text[at + 1]) && is_hex_digit(text[at + 2]);
}

/// The form in which a key stands in the file. No two keys share one.
std::string escaped_key(std::string_view given)
{
    const std::string line = single_line(given);
    const std::string_view key = strip(line);
    std::string result;
    result.reserve(key.size());
    for (std::size_t at = 0; at < key.size(); ++at) {
        if (key[at] == '=') {
            result += "%3D";
        } else if (at == 0 && key[at] == '[') {
            result += "%5B";
        } else if (at == 0 && key[at] == ';') {
            result += "%3B";
        } else if (key[at] == '%' && looks_escaped(key, at)) {
            result += "%25";
        } else {
            result += key[at];
        }
    }
    return result;
}

/// The same for a section, whose name ends at the first "]".
std::string escaped_section(std::string_view given)
{
    const std::string line = single_line(given);
    const std::string_view name = strip(line);
    std::string result;
    for (std::size_t at = 0; at < name.size(); ++at) {
        if (name[at] == ']') {
            result += "%5D";
        } else if (name[at] == '%' && looks_escaped(name, at)) {
            result += "%25";
        } else {
            result += name[at];
        }
    }
    return result;
}

} // namespace

IniDocument::IniDocument(std::string_view bytes)
{
    if (bytes.starts_with(kByteOrderMark)) {
        mark_ = kByteOrderMark;
        bytes.remove_prefix(kByteOrderMark.size());
    }
    const auto first_end = bytes.find('\n');
    if (first_end != std::string_view::npos && first_end > 0 && bytes[first_end - 1] == '\r') {
        line_end_ = "\r\n";
    }
    parse(bytes);
}

void IniDocument::parse(std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto end = bytes.find('\n');
        const auto line = bytes.substr(0, end == std::string_view::npos ? end : end + 1);
        bytes.remove_prefix(line.size());
        if (!name_in_header(line).empty()) {
            begin_section(line);
            continue;
        }
        const auto equals = line.find('=');
        const auto content = strip(line);
        const bool entry = equals != std::string_view::npos && content.front() != '='
            && content.front() != ';' && content.front() != '[';
        append(sections_.back(), {.text = std::string(line), .value = entry ? equals + 1 : 0});
    }
    set_blanks_apart(sections_.back());
}

void IniDocument::begin_section(std::string_view header)
{
    Section section;
    section.above = take_comments(sections_.back());
    set_blanks_apart(sections_.back());
    section.name = name_in_header(header);
    section.lines.push_back({.text = std::string(header)});
    first_.try_emplace(lower(section.name), sections_.size());
    sections_.push_back(std::move(section));
}

/// Takes the comments at the end of a section that a blank line parts from it: they speak of what follows.
std::string IniDocument::take_comments(Section& section)
{
    auto from = section.lines.end();
    while (from != section.lines.begin() && is_comment(std::prev(from)->text)) {
        --from;
    }
    if (from == section.lines.begin() || !is_blank(std::prev(from)->text)) {
        return {};
    }
    std::string comments;
    std::for_each(from, section.lines.end(), [&](const Line& line) { comments += line.text; });
    section.lines.erase(from, section.lines.end());
    return comments;
}

void IniDocument::set_blanks_apart(Section& section)
{
    auto from = section.lines.end();
    while (from != section.lines.begin() && is_blank(std::prev(from)->text)) {
        --from;
    }
    std::for_each(from, section.lines.end(), [&](const Line& line) { section.blanks += line.text; });
    section.lines.erase(from, section.lines.end());
}

void IniDocument::append(Section& section, Line line)
{
    const auto position = section.lines.size();
    if (line.value != 0) {
        const std::string_view before_value(line.text.data(), line.value - 1);
        const auto [known, is_first] = section.first.try_emplace(lower(strip(before_value)), position);
        if (!is_first) {
            line.next_same = std::exchange(section.lines[known->second].next_same, position);
        }
    }
    section.lines.push_back(std::move(line));
}

const IniDocument::Section* IniDocument::find_section(std::string_view section) const
{
    const auto found = first_.find(lower(escaped_section(section)));
    return found == first_.end() ? nullptr : &sections_[found->second];
}

IniDocument::Section* IniDocument::find_section(std::string_view section)
{
    return const_cast<Section*>(std::as_const(*this).find_section(section));
}

/// A new section at the end of the file, after a blank line.
IniDocument::Section& IniDocument::add_section(std::string_view section)
{
    const std::string before = text();
    Section added;
    if (!before.empty()) {
        const std::string_view ended = std::string_view(before).substr(0, before.size() - 1);
        if (before.back() != '\n') {
            added.above = line_end_ + line_end_;
        } else if (!is_blank(ended.substr(ended.rfind('\n') + 1))) {
            added.above = line_end_;
        }
    }
    added.name = escaped_section(section);
    added.lines.push_back({.text = "[" + added.name + "]" + line_end_});
    first_.try_emplace(lower(added.name), sections_.size());
    return sections_.emplace_back(std::move(added));
}

std::string IniDocument::read(std::string_view section, std::string_view key) const
{
    const Section* const in = find_section(section);
    if (in == nullptr) {
        return {};
    }
    const auto found = in->first.find(lower(escaped_key(key)));
    if (found == in->first.end()) {
        return {};
    }
    const Line& line = in->lines[found->second];
    const auto value = first_characters(without_quotes(strip_from(line.text, line.value)), kValueLimit);
    return std::string(value.substr(0, value.find('\0')));
}

bool IniDocument::write(std::string_view section, std::string_view key, std::string_view value)
{
    const std::string name = escaped_key(key);
    if (name.empty() || escaped_section(section).empty()) {
        return false;
    }
    Section* found = find_section(section);
    Section& in = found != nullptr ? *found : add_section(section);
    const std::string line_value = single_line(value);
    const auto known = in.first.find(lower(name));
    if (known != in.first.end()) {
        Line& line = in.lines[known->second];
        line.text = with_value(line.text, line.value, line_value);
        return true;
    }
    if (in.lines.back().text.back() != '\n') {
        in.lines.back().text += line_end_;
    }
    append(in, {.text = name + "=" + line_value + line_end_, .value = name.size() + 1});
    return true;
}

void IniDocument::remove(std::string_view section, std::string_view key)
{
    Section* const in = find_section(section);
    if (in == nullptr) {
        return;
    }
    const auto found = in->first.find(lower(escaped_key(key)));
    if (found == in->first.end()) {
        return;
    }
    for (std::size_t at = found->second; at != 0; at = in->lines[at].next_same) {
        in->lines[at].removed = true;
    }
    in->first.erase(found);
}

void IniDocument::remove_section(std::string_view section)
{
    const std::string name = lower(escaped_section(section));
    if (first_.erase(name) == 0) {
        return;
    }
    for (Section& each : sections_) {
        if (lower(each.name) == name) {
            Section rest;
            if (!each.above.empty()) {
                rest.above = std::move(each.above);
                rest.blanks = std::move(each.blanks); // keeps that apart from what follows
            }
            each = std::move(rest);
        }
    }
}

/// False where another section of the same name stands before it, and above all sections.
bool IniDocument::is_effective(const Section& section) const
{
    const auto named = first_.find(lower(section.name));
    return named != first_.end() && &sections_[named->second] == &section;
}

/// The line as an entry; effective where its section is.
IniLine IniDocument::entry_of(const Section& section, const Line& line)
{
    const auto key = strip(std::string_view(line.text).substr(0, line.value - 1));
    const auto value = without_quotes(strip_from(line.text, line.value));
    const bool first = &section.lines[section.first.at(lower(key))] == &line;
    return {IniLine::Kind::Entry, 0, section.name, key, value, first};
}

std::vector<IniEntry> IniDocument::entries() const
{
    std::vector<IniEntry> result;
    for (const Section& section : sections_) {
        const bool wins = is_effective(section);
        for (const Line& line : section.lines) {
            if (line.value != 0 && !line.removed) {
                const auto entry = entry_of(section, line);
                result.push_back(
                    {section.name, std::string(entry.key), std::string(entry.text), wins && entry.effective});
            }
        }
    }
    return result;
}

std::vector<IniLine> IniDocument::lines() const
{
    std::vector<IniLine> result;
    std::size_t number = 1;
    const auto pass = [&](std::string_view text) {
        number += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    };
    for (const Section& section : sections_) {
        const bool wins = is_effective(section);
        pass(section.above);
        for (const Line& line : section.lines) {
            if (line.removed) {
                continue;
            }
            const auto content = strip(line.text);
            if (!section.name.empty() && &line == section.lines.data()) {
                const auto behind = strip(content.substr(content.find(']') + 1));
                result.push_back({IniLine::Kind::Header, number, section.name, {}, behind, wins});
            } else if (line.value != 0) {
                auto entry = entry_of(section, line);
                entry.number = number;
                entry.effective = entry.effective && wins;
                result.push_back(entry);
            } else if (!content.empty() && !is_comment(content)) {
                result.push_back({IniLine::Kind::Neither, number, section.name, {}, content, false});
            }
            pass(line.text);
        }
        pass(section.blanks);
    }
    return result;
}

std::string IniDocument::text() const
{
    std::string result;
    for (const Section& section : sections_) {
        result += section.above;
        for (const Line& line : section.lines) {
            if (!line.removed) {
                result += line.text;
            }
        }
        result += section.blanks;
    }
    return result;
}

std::string IniDocument::bytes() const
{
    return mark_ + text();
}

std::string StripSectionBrackets(std::string_view section)
{
    if (section.starts_with('[')) {
        section.remove_prefix(1);
    }
    if (section.ends_with(']')) {
        section.remove_suffix(1);
    }
    return std::string(section);
}

} // namespace qz::config
