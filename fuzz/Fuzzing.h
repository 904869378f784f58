// What the fuzz targets share. A target ends the program when a promise is broken.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace qz::fuzz {

inline std::string_view text_of(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

inline void promise(bool kept)
{
    if (!kept) {
        std::abort();
    }
}

} // namespace qz::fuzz
