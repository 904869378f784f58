// Whole numbers in the direct connection: most significant byte first.
#pragma once

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>

namespace qz::client::transfer {

template <std::unsigned_integral Number> void append_number(std::string& out, Number number)
{
    for (std::size_t i = sizeof(Number); i-- > 0;) {
        out += static_cast<char>((number >> (8 * i)) & 0xFFU);
    }
}

/// @param bytes  at least as many as the number has.
template <std::unsigned_integral Number> Number read_number(std::string_view bytes)
{
    Number number = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
        number = static_cast<Number>(number << 8U) | static_cast<unsigned char>(bytes[i]);
    }
    return number;
}

template <typename Key> std::string_view view_of(const Key& key)
{
    return {reinterpret_cast<const char*>(key.data()), key.size()};
}

} // namespace qz::client::transfer
