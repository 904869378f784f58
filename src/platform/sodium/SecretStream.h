// Keys that two parties agree on in public, and a stream of pieces that are enciphered and authenticated with
// them: a piece that was changed, left out, repeated or moved is noticed.
#pragma once

#include "helpers/Crypto.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qz::platform {

using Key = helpers::Crypto::Key;

struct KeyPair {
    Key open_key{};   // for the other party
    Key secret_key{}; // for nobody
};
/// @throws EngineError when the library finds no source of randomness.
KeyPair make_key_pair();

struct SharedKeys {
    Key receiving{};
    Key sending{};
};
/// One of the two parties is the first; which one does not matter.
/// @return nothing when the other's key is none.
std::optional<SharedKeys> agree_on_keys(const KeyPair& own, const Key& others_open_key, bool is_first);

/// BLAKE2b-256 of the text under a key.
Key keyed_hash(const Key& key, std::string_view text);

/// Takes the same time wherever the two differ.
bool equal_in_constant_time(std::string_view left, std::string_view right);

class SealingStream {
public:
    explicit SealingStream(const Key& key);
    ~SealingStream();
    SealingStream(SealingStream&&) noexcept;
    SealingStream& operator=(SealingStream&&) noexcept;

    /// What the other end needs to begin, of kStreamHeaderSize bytes.
    const std::string& header() const { return header_; }
    /// Appends the sealed piece to `out`; it is longer by kSealSize.
    void seal(std::string_view plain, std::string& out);

private:
    struct State;

    std::unique_ptr<State> state_;
    std::string header_;
};

class OpeningStream {
public:
    OpeningStream(const Key& key, std::string_view header);
    ~OpeningStream();
    OpeningStream(OpeningStream&&) noexcept;
    OpeningStream& operator=(OpeningStream&&) noexcept;

    /// The plain piece, valid until the next call; nothing when it is not the one that was sealed next.
    std::optional<std::string_view> open(std::string_view sealed);

private:
    struct State;

    std::unique_ptr<State> state_;
};

inline constexpr std::size_t kStreamHeaderSize = 24;
inline constexpr std::size_t kSealSize = 17;

} // namespace qz::platform
