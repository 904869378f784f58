#include "platform/Mailer.h"

#include <utility>

namespace qz::platform {

EngineError mail_error(std::string description)
{
    constexpr std::uint32_t first_of_components = 0x80040200; // where the numbers of components begin
    return {static_cast<std::int32_t>(first_of_components), "QZ_WinSock_SMTP", std::move(description)};
}

} // namespace qz::platform
