#include "platform/sodium/RunningHash.h"

#include <sodium.h>

namespace qz::platform {

struct RunningHash::State {
    crypto_generichash_state hash;
};

RunningHash::RunningHash() : state_(std::make_unique<State>())
{
    crypto_generichash_init(&state_->hash, nullptr, 0, crypto_generichash_BYTES);
}

RunningHash::~RunningHash() = default;
RunningHash::RunningHash(RunningHash&&) noexcept = default;
RunningHash& RunningHash::operator=(RunningHash&&) noexcept = default;

void RunningHash::add(std::string_view bytes)
{
    crypto_generichash_update(
        &state_->hash, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

helpers::Crypto::Key RunningHash::result() const
{
    helpers::Crypto::Key result{};
    auto hash = state_->hash; // finishing would spoil the original
    crypto_generichash_final(&hash, result.data(), result.size());
    return result;
}

} // namespace qz::platform
