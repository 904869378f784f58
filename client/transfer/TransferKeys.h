// The secrets of one transfer, as the negotiation leaves them with both sides and with nobody else.
#pragma once

#include "platform/sodium/SecretStream.h"

#include <cstdint>
#include <string>

namespace qz::client::transfer {

/// Every connection of a transfer has tokens and stream keys of its own: none is ever used twice.
class TransferKeys {
public:
    /// @param id, size, name  what was negotiated; sides that understood it differently share no key.
    TransferKeys(
        const platform::SharedKeys& shared, std::string_view id, std::uint64_t size, std::string_view name);

    struct ForConnection {
        platform::Key own_token{};
        platform::Key others_token{};
        platform::SharedKeys stream{};
    };
    /// @param sender_connects  whether it is the sender of the file who connects.
    /// @param attempt          the connection's number, 1 or more.
    ForConnection for_connection(bool sender_connects, std::uint32_t attempt) const;

private:
    platform::SharedKeys shared_;
    std::string negotiated_;
};

} // namespace qz::client::transfer
