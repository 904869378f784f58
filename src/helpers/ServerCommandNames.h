// The names of the administrative commands, and the composing of an outgoing message.
#pragma once

#include <string>
#include <string_view>

namespace qz::helpers {

struct ServerCommandNames {
    const std::string ShutDownCommand = "shutdown";
    const std::string PolicyCommand = "policy";
    const std::string LastVersionCommand = "lastversion";
    const std::string CloseAllCommand = "closeall";
    const std::string RemoteCommand = "remotecommand";
    const std::string InstantMessageCommand = "message";
    const std::string LogOffCommand = "logoff";

    /// The message in its envelope. A control character in the keyword or the message, except tab, CR, LF and
    /// BlankSubstitute, becomes U+FFFD: no text of a user ends a frame early or forges another.
    /// @param number  a whole number below 2^53.
    std::string compose(std::string_view keyword, std::string_view message, double number) const;
};

/// The one set of names.
inline const ServerCommandNames& server_command_names()
{
    static const ServerCommandNames kNames;
    return kNames;
}

} // namespace qz::helpers
