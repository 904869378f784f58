#include "LogOnOptions.h"

#include "base/Text.h"
#include "common/Exit.h"

#include <charconv>
#include <iostream>
#include <optional>
#include <unistd.h>

namespace velto {

namespace {

constexpr std::uint16_t kUsualPort = 2001;

std::optional<std::uint16_t> port_of(std::string_view text)
{
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = error == std::errc{} && end == text.data() + text.size();
    return whole && port > 0 ? std::optional(port) : std::nullopt;
}

std::string ask_user()
{
    if (isatty(STDIN_FILENO) == 0) {
        throw CommandError(Exit::Usage, "who logs on? Give --user NAME, or set VELTO_USER");
    }
    std::cerr << "Screen name: " << std::flush;
    std::string name;
    std::getline(std::cin, name);
    return name;
}

std::string password_of(const LogOnOptions& options, const std::string& user)
{
    if (!options.password.file.empty()) {
        return read_secret_file(options.password.file);
    }
    // Without being told so, the first line of a pipe is not taken for a password: it may be a message.
    if (!options.password.standard_input && isatty(STDIN_FILENO) == 0) {
        throw CommandError(Exit::Usage,
            "there is no terminal to ask for the password\nGive --password-file FILE or --password-stdin");
    }
    return read_secret("Password of " + qz::printable(user) + ": ");
}

} // namespace

qz::client::Endpoint endpoint_of(const std::string& server)
{
    std::string_view host = server;
    std::string_view port;
    if (const auto close = host.find(']'); host.starts_with("[") && close != std::string_view::npos) {
        port = host.substr(close + 1);
        host = host.substr(1, close - 1);
    } else if (const auto colon = host.find(':');
               colon == host.rfind(':') && colon != std::string_view::npos) {
        port = host.substr(colon);
        host = host.substr(0, colon);
    } // else a name, or an IPv6 address without a port
    const auto number = port.empty() ? std::optional(kUsualPort)
        : port.starts_with(":")      ? port_of(port.substr(1))
                                     : std::nullopt;
    if (host.empty() || !number) {
        throw CommandError(Exit::Usage,
            "\"" + qz::printable(server)
                + "\" names no server: write HOST:PORT, for instance 127.0.0.1:2001");
    }
    return {std::string(host), *number};
}

qz::client::Account account_of(const LogOnOptions& options)
{
    qz::client::Account account;
    account.screen_name = qz::trim(options.user.empty() ? ask_user() : options.user);
    if (account.screen_name.empty()) {
        throw CommandError(Exit::Usage, "a screen name is needed to log on");
    }
    account.password = password_of(options, account.screen_name);
    return account;
}

} // namespace velto
