// What two clients tell each other about a transfer through the server, in instant messages: the requests of
// the protocol for transfers carry nothing but the names and the addresses.
#pragma once

#include "client/transfer/Outcome.h"
#include "helpers/Crypto.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace qz::client::transfer {

/// Largest file that can be offered.
inline constexpr std::uint64_t kMaxFileSize = (std::uint64_t{1} << 53U) - 1;
inline constexpr std::size_t kIdSize = 22;            // 16 random bytes as base64url
inline constexpr std::uint16_t kLeastPort = 1024;     // below it, services of the machine live
inline constexpr std::size_t kMaxNegotiation = 1'024; // bytes of such a text
inline constexpr std::size_t kMaxOfferedName = 765;   // bytes

struct OfferText {
    std::string id;
    helpers::Crypto::Key key{}; // the sender's open key
    std::uint64_t size = 0;
    std::string name;
};
struct AcceptText {
    std::string id;
    helpers::Crypto::Key key{}; // the recipient's open key
    std::uint16_t port = 0;     // where the recipient listens
};
/// The sender could not connect and listens itself now.
struct ListenText {
    std::string id;
    std::uint16_t port = 0;
};
struct CancelText {
    std::string id;
    Outcome reason = Outcome::Cancelled;
};
using NegotiationText = std::variant<OfferText, AcceptText, ListenText, CancelText>;

std::string write_negotiation(helpers::Crypto& crypto, const NegotiationText& text);
/// Nothing when the text is an ordinary one.
std::optional<NegotiationText> read_negotiation(helpers::Crypto& crypto, std::string_view text);

} // namespace qz::client::transfer
