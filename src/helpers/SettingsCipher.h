// Encodes the settings and passwords that the server stores, and the credentials that clients send.
#pragma once

#include "helpers/Crypto.h"

#include <string>
#include <string_view>

namespace qz::helpers {

/// Where the server's own key comes from.
class KeySource {
public:
    /// The key, which is made when there is none yet.
    /// @throws EngineError when there is one that cannot be read, or none can be made.
    virtual const Crypto::Key& key() = 0;
    /// The key; never makes one, because a new key cannot open what an old one has sealed.
    /// @throws EngineError when there is none.
    virtual const Crypto::Key& existing_key() = 0;

protected:
    ~KeySource() = default; // never deleted through this type
};

class SettingsCipher {
public:
    /// The prefix of encoded texts.
    static constexpr std::string_view Marker = "{v1}"; // NOLINT(readability-identifier-naming): given name

    /// Both must outlive the cipher. The key is first asked for when it is needed.
    SettingsCipher(Crypto& crypto, KeySource& keys) : crypto_(crypto), keys_(keys) { }

    /// The marker and one line of letters, digits, "-" and "_". Encoding the same text twice gives two texts.
    /// @param text  any bytes.
    std::string Encode(std::string_view text);
    /// A text without the marker is returned as it is: it was never encoded.
    /// @throws EngineError for a marked text that was not made with this key, or was changed.
    std::string Decode(std::string_view text);
    /// Number of bytes of the text that encodes `size` bytes.
    static constexpr std::size_t encoded_size(std::size_t size)
    {
        constexpr std::size_t nonce_and_seal = 24 + 16;
        return Marker.size() + ((size + nonce_and_seal) * 8 + 5) / 6;
    }

    /// @param field           a credential field of a logon without its marker.
    /// @param remote_address  address of the connection that sent it.
    /// @return the empty text when the field does not decode.
    std::string DecodeCredential(std::string_view field, std::string_view remote_address);

private:
    Crypto& crypto_;
    KeySource& keys_;
};

/// How a client codes a credential.
enum class CredentialForm {
    Plain,   // the bytes as they stand, for use inside TLS or behind address translation
    Address, // sealed with a key made from the client's address as the server sees it
};

/// A credential field as a client sends it, marker included.
std::string EncodeCredential(
    Crypto& crypto, std::string_view text, std::string_view address, CredentialForm form);

} // namespace qz::helpers
