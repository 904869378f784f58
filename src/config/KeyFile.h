// The file that holds the server's own key. It is made once, on first use, and never overwritten: whoever
// loses it loses every encoded setting and password.
#pragma once

#include "helpers/SettingsCipher.h"
#include "platform/AtomicFile.h"

#include <filesystem>
#include <functional>
#include <optional>

namespace qz::config {

/// One line: the 32 bytes of the key as base64url. Errors name the file.
class KeyFile : public helpers::KeySource {
public:
    /// @param crypto         must outlive the object.
    /// @param before_making  called before a key is made; throws to prevent it, because a new key opens
    /// nothing
    ///                       of what was encoded with the one that is missing.
    KeyFile(
        std::filesystem::path path, helpers::Crypto& crypto, std::function<void()> before_making = [] {})
        : file_(std::move(path)), crypto_(crypto), before_making_(std::move(before_making))
    {
    }

    KeyFile(const KeyFile&) = delete;
    KeyFile& operator=(const KeyFile&) = delete;
    virtual ~KeyFile() = default;

    const helpers::Crypto::Key& key() override;
    const helpers::Crypto::Key& existing_key() override;

    const std::filesystem::path& path() const { return file_.path(); }
    /// Others than the file's owner may read it, so the secrets that it protects are theirs as well.
    bool is_readable_by_others() const;

private:
    bool read();
    void make();

    platform::AtomicFile file_;
    helpers::Crypto& crypto_;
    std::function<void()> before_making_;
    std::optional<helpers::Crypto::Key> key_; // kept for good once it was read
};

} // namespace qz::config
