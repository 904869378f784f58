#include "helpers/SettingsCipher.h"

#include "base/EngineError.h"
#include "base/Text.h"

namespace qz::helpers {

namespace {

constexpr char kPlainForm = 'p';
constexpr char kAddressForm = 'a';

Crypto::Key key_of_address(Crypto& crypto, std::string_view address)
{
    return crypto.hash(std::string("velto credential ").append(address));
}

} // namespace

std::string SettingsCipher::Encode(std::string_view text)
{
    return std::string(Marker).append(crypto_.to_base64url(crypto_.seal(keys_.key(), text)));
}

std::string SettingsCipher::Decode(std::string_view text)
{
    if (!text.starts_with(Marker)) {
        return std::string(text);
    }
    const auto sealed = crypto_.from_base64url(text.substr(Marker.size()));
    if (sealed) {
        if (auto plain = crypto_.open(keys_.existing_key(), *sealed)) {
            return *std::move(plain);
        }
    }
    throw runtime_error(RuntimeError::TypeMismatch, "The stored text was not encoded with this server's key");
}

std::string SettingsCipher::DecodeCredential(std::string_view field, std::string_view remote_address)
{
    if (field.empty()) {
        return {};
    }
    auto bytes = crypto_.from_base64url(field.substr(1));
    if (bytes && field.front() == kAddressForm) {
        bytes = crypto_.open(key_of_address(crypto_, remote_address), *bytes);
    } else if (field.front() != kPlainForm) {
        return {};
    }
    // Names and passwords go on into statements and log lines, which are UTF-8 throughout.
    return bytes && valid_utf8(*bytes) == *bytes ? *std::move(bytes) : std::string();
}

std::string EncodeCredential(
    Crypto& crypto, std::string_view text, std::string_view address, CredentialForm form)
{
    std::string field(SettingsCipher::Marker);
    if (form == CredentialForm::Plain) {
        return field.append(1, kPlainForm).append(crypto.to_base64url(text));
    }
    return field.append(1, kAddressForm)
        .append(crypto.to_base64url(crypto.seal(key_of_address(crypto, address), text)));
}

} // namespace qz::helpers
