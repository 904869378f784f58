// The cryptographic operations, made with libsodium.
#pragma once

#include "helpers/Crypto.h"

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
};

} // namespace qz::platform
