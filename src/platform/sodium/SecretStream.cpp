#include "platform/sodium/SecretStream.h"

#include "base/EngineError.h"

#include <sodium.h>

namespace qz::platform {

namespace {

static_assert(kStreamHeaderSize == crypto_secretstream_xchacha20poly1305_HEADERBYTES);
static_assert(kSealSize == crypto_secretstream_xchacha20poly1305_ABYTES);
static_assert(crypto_kx_PUBLICKEYBYTES == std::tuple_size_v<Key>);
static_assert(crypto_kx_SESSIONKEYBYTES == crypto_secretstream_xchacha20poly1305_KEYBYTES);

const unsigned char* bytes_of(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytes_of(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

} // namespace

KeyPair make_key_pair()
{
    if (sodium_init() < 0) { // harmless when it was done before
        throw runtime_error(RuntimeError::Internal, "The cipher library found no source of randomness");
    }
    KeyPair pair;
    crypto_kx_keypair(pair.open_key.data(), pair.secret_key.data());
    return pair;
}

std::optional<SharedKeys> agree_on_keys(const KeyPair& own, const Key& others_open_key, bool is_first)
{
    SharedKeys keys;
    const auto agree = is_first ? crypto_kx_client_session_keys : crypto_kx_server_session_keys;
    const int failed = agree(keys.receiving.data(), keys.sending.data(), own.open_key.data(),
        own.secret_key.data(), others_open_key.data());
    return failed == 0 ? std::optional(keys) : std::nullopt;
}

Key keyed_hash(const Key& key, std::string_view text)
{
    Key result{};
    crypto_generichash(result.data(), result.size(), bytes_of(text), text.size(), key.data(), key.size());
    return result;
}

bool equal_in_constant_time(std::string_view left, std::string_view right)
{
    return left.size() == right.size() && sodium_memcmp(left.data(), right.data(), left.size()) == 0;
}

struct SealingStream::State {
    crypto_secretstream_xchacha20poly1305_state stream;
};

SealingStream::SealingStream(const Key& key)
    : state_(std::make_unique<State>()), header_(kStreamHeaderSize, '\0')
{
    crypto_secretstream_xchacha20poly1305_init_push(&state_->stream, bytes_of(header_), key.data());
}

SealingStream::~SealingStream() = default;
SealingStream::SealingStream(SealingStream&&) noexcept = default;
SealingStream& SealingStream::operator=(SealingStream&&) noexcept = default;

void SealingStream::seal(std::string_view plain, std::string& out)
{
    const auto at = out.size();
    out.resize(at + plain.size() + kSealSize);
    crypto_secretstream_xchacha20poly1305_push(
        &state_->stream, bytes_of(out) + at, nullptr, bytes_of(plain), plain.size(), nullptr, 0, 0);
}

struct OpeningStream::State {
    crypto_secretstream_xchacha20poly1305_state stream;
    std::string plain;
};

OpeningStream::OpeningStream(const Key& key, std::string_view header) : state_(std::make_unique<State>())
{
    crypto_secretstream_xchacha20poly1305_init_pull(&state_->stream, bytes_of(header), key.data());
}

OpeningStream::~OpeningStream() = default;
OpeningStream::OpeningStream(OpeningStream&&) noexcept = default;
OpeningStream& OpeningStream::operator=(OpeningStream&&) noexcept = default;

std::optional<std::string_view> OpeningStream::open(std::string_view sealed)
{
    if (sealed.size() < kSealSize) {
        return std::nullopt;
    }
    auto& plain = state_->plain;
    plain.resize(sealed.size() - kSealSize);
    unsigned char tag = 0;
    const int failed = crypto_secretstream_xchacha20poly1305_pull(
        &state_->stream, bytes_of(plain), nullptr, &tag, bytes_of(sealed), sealed.size(), nullptr, 0);
    return failed == 0 ? std::optional<std::string_view>(plain) : std::nullopt;
}

} // namespace qz::platform
