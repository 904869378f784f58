// Operations on UTF-8 text that several rooms need. A "character" is a Unicode code point.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace qz {

/// Text without the blanks (U+0020 only) at both its ends.
std::string_view trim(std::string_view text);

/// Lower-case form, letter by letter, of every alphabet that the C.UTF-8 locale knows.
/// Bytes that are not UTF-8 stay as they are.
std::string lower(std::string_view text);

/// True when the lower-case forms are equal.
bool equal_ignoring_case(std::string_view left, std::string_view right);

/// Number of characters; a byte that is not UTF-8 counts as one.
std::size_t character_count(std::string_view text);

/// The first `count` characters, or the whole text when it is shorter.
std::string_view first_characters(std::string_view text, std::size_t count);

/// Text in which every byte that is not part of well-formed UTF-8 is replaced by U+FFFD.
std::string valid_utf8(std::string_view text);

/// The pieces one behind the other, in memory that is taken once.
std::string joined(std::initializer_list<std::string_view> pieces);

/// Every occurrence of `what` (not empty) replaced by `with`.
std::string replace_all(std::string_view text, std::string_view what, std::string_view with);

/// Bytes at the front of a text that are printable characters of ASCII: what needs no further look.
std::size_t plain_length(std::string_view text);

/// Text without CR, LF and NUL: what may stand in one line of a file or in a header.
std::string single_line(std::string_view text);
/// The same without a copy of a text that is one line already, as nearly all are.
class SingleLine {
public:
    /// @param text  must outlive the object.
    explicit SingleLine(const std::string& text);
    const std::string& text() const { return changed_ ? *changed_ : given_; }

private:
    const std::string& given_;
    std::optional<std::string> changed_;
};

/// Whether a character cannot be seen: control characters (C0, C1, DEL), line and paragraph separators, the
/// controls of the writing direction, and what has no width (Unicode's default ignorable code points).
/// Letters that are written from right to left are none of these.
bool is_invisible(char32_t character);

/// Whether a text has blanks other than U+0020. Two names that differ in one of them cannot be told apart.
bool has_other_blanks(std::string_view text);

/// Text for a terminal or a log line of the host: invisible characters and bytes that are not UTF-8 are shown
/// as \n, \r, \t or \xNN, so that nothing received can steer the terminal, forge a line, or read as another
/// text.
std::string printable(std::string_view text);
void append_printable(std::string& to, std::string_view text);

/// A peer's text as people read it, in one line: line breaks and tabs become blanks, other invisible
/// characters are removed, bytes that are not UTF-8 become U+FFFD. Joiners and variation selectors stay
/// behind the letters and symbols that need them (Arabic, Indic, emoji).
std::string visible_line(std::string_view text);

/// The number at the start of a text: blanks, sign, digits, fraction, exponent. 0 when the text does not
/// begin with a number; what follows the number is ignored.
double leading_number(std::string_view text);

/// A number in plain decimal, without exponent or trailing zeros: 15, -3, 0.5, 9007199254740991.
std::string decimal(double number);

} // namespace qz
