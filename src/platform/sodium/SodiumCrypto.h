// The cryptographic operations, made with libsodium. One object is for one thread.
#pragma once

#include "helpers/Crypto.h"

#include <array>
#include <cstddef>

namespace qz::platform {

class SodiumCrypto : public helpers::Crypto {
public:
    /// @throws EngineError when the library finds no source of randomness.
    SodiumCrypto();

    std::uint64_t random_below(std::uint64_t limit) override;
    Key random_key() override;
    Key hash(std::string_view text) override;
    std::string seal(const Key& key, std::string_view plain) override;
    std::optional<std::string> open(const Key& key, std::string_view sealed) override;
    std::string to_base64url(std::string_view bytes) override;
    std::optional<std::string> from_base64url(std::string_view text) override;

private:
    std::uint64_t random_number();

    std::array<std::uint64_t, 64> drawn_{}; // ahead of their use: each draw is a call of the system
    std::size_t left_ = 0;                  // of them, in front
};

} // namespace qz::platform
