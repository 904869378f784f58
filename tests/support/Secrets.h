// A cipher with the key file of a test's own folder.
#pragma once

#include "config/KeyFile.h"
#include "helpers/SettingsCipher.h"
#include "platform/sodium/SodiumCrypto.h"

#include <filesystem>

namespace qz::test {

struct Secrets {
    explicit Secrets(const std::filesystem::path& folder) : key_file(folder / "VELTO_Server.key", crypto) { }

    platform::SodiumCrypto crypto;
    config::KeyFile key_file;
    helpers::SettingsCipher cipher{crypto, key_file};
};

} // namespace qz::test
