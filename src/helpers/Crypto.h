// The few cryptographic operations that the helper objects need; a kept library provides them (platform
// room).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qz::helpers {

class Crypto {
public:
    using Key = std::array<unsigned char, 32>;

    virtual ~Crypto() = default;
    /// A number below `limit` (1 or more), every one equally likely, from the system's random source.
    virtual std::uint64_t random_below(std::uint64_t limit) = 0;
    virtual Key random_key() = 0;
    /// BLAKE2b-256 of the text.
    virtual Key hash(std::string_view text) = 0;
    /// A fresh 24-byte nonce followed by the XSalsa20-Poly1305 secret box of `plain`.
    virtual std::string seal(const Key& key, std::string_view plain) = 0;
    /// The plain bytes of what `seal` made; nothing when the bytes were not made with this key or were
    /// changed.
    virtual std::optional<std::string> open(const Key& key, std::string_view sealed) = 0;
    /// base64url without padding.
    virtual std::string to_base64url(std::string_view bytes) = 0;
    virtual std::optional<std::string> from_base64url(std::string_view text) = 0;

protected:
    Crypto() = default;
    Crypto(const Crypto&) = default;
    Crypto& operator=(const Crypto&) = default;
};

} // namespace qz::helpers
