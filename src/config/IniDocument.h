// The text of one INI file: sections of entries, found without regard to case. What is not changed keeps its
// bytes: comments, blank lines, line ends, entries that nobody knows, and the order of all of them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qz::config {

/// One entry as it stands in the file, names given by users in their escaped form.
struct IniEntry {
    std::string section;
    std::string key;
    std::string value; // of any length
    bool effective;    // false: an entry or section of the same name stands before it and wins
};

/// One line that is neither blank nor a comment. Its texts are those of the document, and good as long as
/// that is neither changed nor gone.
struct IniLine {
    enum class Kind { Header, Entry, Neither };
    Kind kind;
    std::size_t number;       // from 1
    std::string_view section; // that it begins or stands in; empty above all sections
    std::string_view key;     // of an entry
    std::string_view text;    // of an entry its value; of a header what stands behind it; else the whole line
    bool effective;           // of an entry or a header: as of an IniEntry
};

/// Section and for a key: blanks at both ends do not count, CR, LF and NUL are dropped, and characters that
/// would make another entry of it are escaped alike in reading and writing, so that names given by users can
/// be keys.
class IniDocument {
public:
    static constexpr std::size_t kValueLimit = 253; // characters of a value as it is read

    IniDocument() = default;
    explicit IniDocument(std::string_view bytes);

    /// Value without blanks and without one pair of quotes around it, cut to 253 characters and at the first
    /// NUL; empty when there is no such entry.
    std::string read(std::string_view section, std::string_view key) const;
    /// Changes the entry or adds it at the end of its section, or a section at the end of the file. The value
    /// loses CR, LF and NUL.
    /// @return false, with nothing changed, when the section or the key is empty.
    bool write(std::string_view section, std::string_view key, std::string_view value);
    /// Removes every entry of that name from the section.
    void remove(std::string_view section, std::string_view key);
    /// Removes every section of that name with all that stands in it.
    void remove_section(std::string_view section);

    bool has_section(std::string_view section) const { return find_section(section) != nullptr; }
    /// In the order of the file.
    std::vector<IniEntry> entries() const;
    std::vector<IniLine> lines() const;
    std::string bytes() const;

private:
    struct Line {
        std::string text;          // with its line end
        std::size_t value = 0;     // where the value begins; 0 when the line is no entry
        std::size_t next_same = 0; // the next line of the section with the same key; 0 for none
        bool removed = false;
    };
    /// The file is the text of its sections one after the other.
    struct Section {
        std::string above; // what speaks of the section and stands before it; stays when the section goes
        std::string name;  // as in the file
        std::vector<Line> lines; // from the header to the last line that is not blank
        std::string blanks;      // blank lines after these: new entries go before them
        std::unordered_map<std::string, std::size_t> first; // folded key -> line
    };

    void parse(std::string_view bytes);
    void begin_section(std::string_view header);
    static std::string take_comments(Section& section);
    static void set_blanks_apart(Section& section);
    static void append(Section& section, Line line);
    Section* find_section(std::string_view section);
    const Section* find_section(std::string_view section) const;
    Section& add_section(std::string_view section);
    std::string text() const;
    bool is_effective(const Section& section) const;
    static IniLine entry_of(const Section& section, const Line& line);

    std::string mark_; // byte order mark, where the file has one
    std::string line_end_ = "\n";
    std::vector<Section> sections_{1}; // the first one has no header: what stands above all sections
    std::unordered_map<std::string, std::size_t> first_; // folded name -> section
};

/// Section name without a "[" at its beginning and a "]" at its end, each only where present.
std::string StripSectionBrackets(std::string_view section);

} // namespace qz::config
