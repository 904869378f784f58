// Who logs on where: what every command of velto asks for.
#pragma once

#include "client/ClientCore.h"
#include "client/Resolver.h"
#include "common/Console.h"

#include <string>

namespace velto {

struct LogOnOptions {
    std::string server = "127.0.0.1:2001";
    std::string user;
    PasswordSource password;
};

/// Reads HOST:PORT, HOST, [ADDRESS]:PORT.
/// @throws CommandError 2 for anything else.
qz::client::Endpoint endpoint_of(const std::string& server);

/// The account; what the options do not say is asked for on the terminal.
/// @throws CommandError when there is nobody to ask, or the password cannot be read.
qz::client::Account account_of(const LogOnOptions& options);

} // namespace velto
