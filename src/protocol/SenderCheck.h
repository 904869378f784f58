// The safeguard VerifySender: nobody acts under another user's name.
#pragma once

#include "config/Deployment.h"
#include "net/ConnectionTable.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qz::protocol {

class SenderCheck {
public:
    SenderCheck(const net::ConnectionTable& connections, const config::Deployment& deployment)
        : connections_(connections), deployment_(deployment)
    {
    }

    /// Why a request may not act for the user whom it names: a sentence for its sender, in which what came
    /// from outside is cut and made harmless. Nothing when it may, or when the safeguard is off.
    /// @param named    sender or owner that the request names, in lower case; empty when it names none.
    /// @param command  its command word.
    std::optional<std::string> refusal(
        std::int16_t socket, const std::string& named, const std::string& command) const;

private:
    const net::ConnectionTable& connections_;
    const config::Deployment& deployment_;
};

} // namespace qz::protocol
