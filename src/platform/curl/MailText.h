// A mail as it travels: its checks, its header and the coding of its texts (RFC 5322, 2045 and 2047).
#pragma once

#include "platform/Mailer.h"

#include <chrono>
#include <string>
#include <string_view>

namespace qz::platform {

/// @throws EngineError that says what is wrong: an address that is not one plain ASCII address, a line end or
/// NUL in the subject, or a server that is neither a name nor an IP address.
void require_sound(const OutgoingMail& mail);

/// Header and body with CR LF line ends. A text that plain mail cannot carry is coded; one that it can stays
/// readable as it is.
/// @param mail  a sound one.
/// @param id    what stands before the "@" of the message's id; unique.
std::string compose(const OutgoingMail& mail, std::chrono::system_clock::time_point now, std::string_view id);

/// Where the mail goes: "smtp://[::1]:25".
std::string address_of(const OutgoingMail& mail);

} // namespace qz::platform
