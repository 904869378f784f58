#include "torture/User.h"

#include "helpers/ServerCommandNames.h"
#include "helpers/SettingsCipher.h"

#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <variant>

namespace qz::torture {

using namespace std::chrono_literals;

User::User(std::string name, std::uint16_t port, Truth& truth)
    : name_(std::move(name)), truth_(truth),
      connection_({"127.0.0.1", port}, {name_, "secret"}, crypto_, clock_, *this)
{
    connection_.start();
}

/// A logon on which the server dies, or that it cannot look up on a full disk, goes unanswered; the client
/// takes the first of those for a refusal.
void User::refused(const std::vector<std::string>& reasons)
{
    if (!reasons.empty()) {
        truth_.fail(name_ + " was refused: " + reasons.front());
    }
}

void User::incoming(const client::Incoming& incoming)
{
    if (const auto* const message = std::get_if<client::Message>(&incoming)) {
        truth_.shown(name_, *message);
    } else if (const auto* const notice = std::get_if<client::Notice>(&incoming)) {
        if (notice->text.ends_with("doesn't exist!") || notice->text.ends_with("was not accepted!")
            || notice->text.find("has not been accepted") != std::string::npos) {
            truth_.fail(name_ + " was told: " + notice->text);
        }
    }
}

void User::write_to(const std::string& to, std::size_t length, std::optional<DateTime> expires)
{
    const auto text = truth_.next_text(name_, to, length);
    const auto sent = connection_.core().deliver_message({to, text, false, expires});
    if (sent.result == client::SendResult::OutputFull) {
        truth_.take_back(); // a little later, then
        return;
    }
    if (sent.result != client::SendResult::Sent) {
        truth_.fail(name_ + " could not write: " + std::string(client::describe(sent.result)));
        return;
    }
    truth_.sent(text, sent.id, expires.has_value());
}

void User::leave(Time until)
{
    away_until_ = until;
    connection_.stop();
}

void User::work(Time now)
{
    constexpr auto kPatience = 100ms;
    auto& core = connection_.core();
    if (core.attempt() == 0 && away_until_ <= now && retry_at_ <= now) {
        connection_.stop();
        connection_.start();
        retry_at_ = now + kPatience;
    }
    connection_.on_ready(true, true);
}

Thief::Thief(std::string name, std::uint16_t port, std::chrono::steady_clock::time_point until)
    : name_(std::move(name)), until_(until),
      socket_(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address);
}

Thief::~Thief()
{
    close(socket_);
}

bool Thief::work(std::chrono::steady_clock::time_point now)
{
    std::array<char, 4096> buffer{};
    const auto size = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size == 0 || now > until_) {
        return false;
    }
    if (size > 0 && !said_) {
        heard_.append(buffer.data(), static_cast<std::size_t>(size));
        const auto key = heard_.find("sessionidvalue=");
        const auto end = key == std::string::npos ? key : heard_.find('\x03', key);
        if (end != std::string::npos) {
            platform::SodiumCrypto crypto;
            const auto credential = [&](const std::string& text) {
                return helpers::EncodeCredential(crypto, text, {}, helpers::CredentialForm::Plain);
            };
            const auto logon = helpers::server_command_names().compose("logon",
                "screenname=" + credential(name_) + " password=" + credential("secret") + " "
                    + heard_.substr(key, end - key),
                1);
            said_ = send(socket_, logon.data(), logon.size(), MSG_NOSIGNAL) > 0;
        }
    }
    return true;
}

} // namespace qz::torture
