// How values travel: blanks inside a value, and the entries of lists.
#pragma once

#include "helpers/MessageParser.h"

#include <initializer_list>
#include <string>
#include <string_view>

namespace qz::protocol {

/// A value as it stands anywhere but at the end of a body: its blanks as BlankSubstitute, so that no text of
/// a user reads as another key.
std::string without_blanks(std::string_view value);
/// A value of a request with the blanks that its sender meant.
std::string blank_value(const helpers::MessageParser& parser, std::string_view parameters, const char* key);
/// A screen name of a request: its blanks restored, in lower case.
std::string screen_name(const helpers::MessageParser& parser, std::string_view parameters, const char* key);

/// The text of a list: entries separated by '#', fields of an entry by a blank.
class ListText {
public:
    /// An empty field becomes '-', a '#' inside a field U+FFFD: a name or a status cannot forge an entry.
    void add(std::initializer_list<std::string_view> fields);
    /// @param entry  the text of another list, of one entry.
    void add_entry(std::string_view entry);

    bool empty() const { return text_.empty(); }
    const std::string& text() const { return text_; }

private:
    std::string text_;
};

} // namespace qz::protocol
