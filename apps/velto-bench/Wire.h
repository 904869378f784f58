// The texts of the client protocol as the generator and the relay need them: few, short, and never cut.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velto::bench {

/// A unit that came over a connection; parts of its text.
struct Unit {
    std::string_view number;
    std::string_view keyword;
    std::string_view body;
};

/// Takes a unit apart, whether it has a frame or not. The keyword is empty when the unit is a later chunk of
/// a long text.
Unit unit_in(std::string_view text);

/// The value of the first `key=`, up to the next blank; of "msg" up to the end.
std::string_view value_in(std::string_view body, std::string_view key);

/// Appends an envelope without a frame.
void add_envelope(
    std::string& output, std::string_view number, std::string_view keyword, std::string_view body);

/// Appends an envelope in one frame.
void add_frame(std::string& output, std::string_view number, std::string_view keyword, std::string_view body);

} // namespace velto::bench
