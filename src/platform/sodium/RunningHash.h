// BLAKE2b-256 of bytes that come piece by piece.
#pragma once

#include "helpers/Crypto.h"

#include <memory>
#include <string_view>

namespace qz::platform {

class RunningHash {
public:
    RunningHash();
    ~RunningHash();
    RunningHash(RunningHash&&) noexcept;
    RunningHash& operator=(RunningHash&&) noexcept;

    void add(std::string_view bytes);
    /// Of all bytes so far; more may be added afterwards.
    helpers::Crypto::Key result() const;

private:
    struct State;

    std::unique_ptr<State> state_;
};

} // namespace qz::platform
