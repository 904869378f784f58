#include "platform/sodium/SodiumCrypto.h"

#include "base/EngineError.h"

#include <limits>
#include <sodium.h>
#include <utility>

namespace qz::platform {

namespace {

constexpr int kAlphabet = sodium_base64_VARIANT_URLSAFE_NO_PADDING;
constexpr std::size_t kNonceSize = crypto_secretbox_NONCEBYTES;

static_assert(crypto_secretbox_KEYBYTES == std::tuple_size_v<helpers::Crypto::Key>);
static_assert(crypto_generichash_BYTES == std::tuple_size_v<helpers::Crypto::Key>);

// The library speaks of unsigned bytes, the engine of text.
const unsigned char* bytes_of(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytes_of(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

} // namespace

SodiumCrypto::SodiumCrypto()
{
    if (sodium_init() < 0) { // harmless when it was done before
        throw runtime_error(RuntimeError::Internal, "The cipher library found no source of randomness");
    }
}

std::uint64_t SodiumCrypto::random_below(std::uint64_t limit)
{
    // Numbers of the last, incomplete run of `limit` are drawn again: they would favour the small results.
    const std::uint64_t surplus = ((std::numeric_limits<std::uint64_t>::max)() % limit + 1) % limit;
    std::uint64_t number = 0;
    do {
        number = random_number();
    } while (number > (std::numeric_limits<std::uint64_t>::max)() - surplus);
    return number % limit;
}

std::uint64_t SodiumCrypto::random_number()
{
    if (left_ == 0) {
        randombytes_buf(drawn_.data(), sizeof drawn_);
        left_ = drawn_.size();
    }
    return std::exchange(drawn_.at(--left_), 0); // used once, and then no longer in memory
}

helpers::Crypto::Key SodiumCrypto::random_key()
{
    Key key{};
    randombytes_buf(key.data(), key.size());
    return key;
}

helpers::Crypto::Key SodiumCrypto::hash(std::string_view text)
{
    Key result{};
    crypto_generichash(result.data(), result.size(), bytes_of(text), text.size(), nullptr, 0);
    return result;
}

std::string SodiumCrypto::seal(const Key& key, std::string_view plain)
{
    std::string sealed(kNonceSize + crypto_secretbox_MACBYTES + plain.size(), '\0');
    unsigned char* const nonce = bytes_of(sealed);
    randombytes_buf(nonce, kNonceSize);
    crypto_secretbox_easy(nonce + kNonceSize, bytes_of(plain), plain.size(), nonce, key.data());
    return sealed;
}

std::optional<std::string> SodiumCrypto::open(const Key& key, std::string_view sealed)
{
    if (sealed.size() < kNonceSize + crypto_secretbox_MACBYTES) {
        return std::nullopt;
    }
    std::string plain(sealed.size() - kNonceSize - crypto_secretbox_MACBYTES, '\0');
    const unsigned char* const nonce = bytes_of(sealed);
    if (crypto_secretbox_open_easy(
            bytes_of(plain), nonce + kNonceSize, sealed.size() - kNonceSize, nonce, key.data())
        != 0) {
        return std::nullopt;
    }
    return plain;
}

std::string SodiumCrypto::to_base64url(std::string_view bytes)
{
    std::string text(sodium_base64_encoded_len(bytes.size(), kAlphabet), '\0');
    sodium_bin2base64(text.data(), text.size(), bytes_of(bytes), bytes.size(), kAlphabet);
    text.pop_back(); // the library ends its text with a NUL
    return text;
}

std::optional<std::string> SodiumCrypto::from_base64url(std::string_view text)
{
    std::string bytes(text.size() / 4 * 3 + 3, '\0');
    std::size_t size = 0;
    if (sodium_base642bin(
            bytes_of(bytes), bytes.size(), text.data(), text.size(), nullptr, &size, nullptr, kAlphabet)
        != 0) {
        return std::nullopt;
    }
    bytes.resize(size);
    return bytes;
}

} // namespace qz::platform
