#include "protocol/SenderCheck.h"

#include "base/Text.h"

namespace qz::protocol {

namespace {

constexpr std::size_t kShownCharacters = 50; // the width of a user name in the tables

} // namespace

std::optional<std::string> SenderCheck::refusal(
    std::int16_t socket, const std::string& named, const std::string& command) const
{
    if (!deployment_.verify_sender() || connections_.is_logged_on(named, socket)) {
        return std::nullopt;
    }
    const auto sender =
        named.empty() ? "no sender" : "the sender " + printable(first_characters(named, kShownCharacters));
    return "Your request " + command + " has been refused: it names " + sender + ", but you are logged on as "
        + connections_.Retrieve_ScreenNameBySocket(socket);
}

} // namespace qz::protocol
