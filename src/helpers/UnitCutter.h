// Cuts the bytes of one connection into the units of the protocol.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace qz::helpers {

/// A unit that begins with FrameStart ends with FrameEnd; any other begins with EnvelopeStart and ends with
/// EnvelopeEnd. Bytes before a start marker are dropped. Each byte is looked at once, in whatever pieces it
/// comes, and nothing is kept between units.
class UnitCutter {
public:
    /// Most bytes of a unit before its end marker.
    static constexpr std::size_t kMaxUnit = std::size_t{16} * 1024;

    /// Takes bytes off the front of `bytes` until a unit is whole or the bytes are used up. To be called
    /// until it gives nothing.
    /// @return the unit with its markers, as well-formed UTF-8: bytes that are not become U+FFFD.
    std::optional<std::string> next_unit(std::string_view& bytes);

    /// A unit was larger than kMaxUnit. Nothing comes out any more; the caller closes the connection.
    bool overflowed() const { return overflowed_; }

private:
    void overflow(std::string_view& bytes);

    std::string begun_; // the unit whose end has not come yet; empty between units
    bool overflowed_ = false;
};

} // namespace qz::helpers
