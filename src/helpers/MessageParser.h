// Takes the texts of clients apart: fields, parameters, values by key.
#pragma once

#include "helpers/Crypto.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace qz::helpers {

class MessageParser {
public:
    /// @param crypto  source of the fresh numbers; outlives the parser.
    explicit MessageParser(Crypto& crypto) : crypto_(crypto) { }

    /// The field at a position, from 1 on. Every blank separates two fields, so two blanks in a row have an
    /// empty field between them. Empty when there is no such field.
    std::string field(std::string_view text, std::size_t position) const;

    /// What follows the keyword and one blank, when the keyword is the first field; otherwise the whole text.
    std::string text_after_keyword(std::string_view text, std::string_view keyword) const;

    /// The value of the first `key=` at the start of the text or after a blank; empty when there is none. It
    /// ends before the next blank that is followed by a key of the protocol and '='; blanks at its end do not
    /// belong to it. "msg" runs to the end of the text with all its blanks, and nothing behind `msg=` is
    /// taken for a key: it is what a person typed.
    std::string value(std::string_view text, std::string_view key) const;

    /// Doubles every single quote.
    std::string CleanText(std::string_view text) const;

    /// A whole number from 1 to 2^53 - 1, for session ids and message numbers.
    double fresh_number();

    /// The transform of every outgoing frame: none.
    static std::string transform(std::string text) { return text; }

private:
    Crypto& crypto_;
};

/// True for "True", "yes", "1" and "-1" in any case.
bool read_boolean(std::string_view text);
/// "True" or "False".
const std::string& boolean_text(bool value);

} // namespace qz::helpers
