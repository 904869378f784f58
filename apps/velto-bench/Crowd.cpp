#include "Crowd.h"

#include "helpers/SettingsCipher.h"
#include "platform/sodium/SodiumCrypto.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace velto::bench {

namespace {

constexpr std::size_t kAtATime = 64;     // logons under way
constexpr std::size_t kPerAddress = 150; // a server may limit the connections of one address
constexpr std::chrono::milliseconds kSilence{
    30000}; // a server may try a waiting message again only every ten seconds

std::string credential(const std::string& text)
{
    static qz::platform::SodiumCrypto crypto;
    return EncodeCredential(crypto, text, "", qz::helpers::CredentialForm::Plain);
}

sockaddr_in address_of(std::uint32_t ip, std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(ip);
    return address;
}

/// Clients come from several loopback addresses, as those of an organisation do.
qz::client::Descriptor connected_socket(std::size_t account, std::uint16_t port)
{
    qz::client::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    setsockopt(socket.number(), IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof(on));
    setsockopt(socket.number(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    const auto own = address_of(INADDR_LOOPBACK + 256 + static_cast<std::uint32_t>(account / kPerAddress), 0);
    const auto server = address_of(INADDR_LOOPBACK, port);
    if (bind(socket.number(), reinterpret_cast<const sockaddr*>(&own), sizeof(own)) != 0
        || ::connect(socket.number(), reinterpret_cast<const sockaddr*>(&server), sizeof(server)) != 0) {
        throw std::runtime_error(std::string("a client cannot connect: ") + std::strerror(errno));
    }
    return socket;
}

} // namespace

std::string account_name(std::size_t number)
{
    return "user" + std::to_string(number);
}

Crowd::Crowd(std::uint16_t port)
    : port_(port), epoll_(epoll_create1(EPOLL_CLOEXEC)), password_(credential("secret"))
{
}

void Crowd::log_on(std::size_t first_account, std::size_t count)
{
    const auto all = logged_on_ + count;
    std::size_t next = first_account;
    while (logged_on_ < all) {
        for (; next < first_account + count && clients_.size() - logged_on_ < kAtATime; ++next) {
            connect(next);
        }
        const auto before = logged_on_;
        const auto sockets = clients_.size();
        poll_until([&] { return logged_on_ > before || clients_.size() != sockets; });
    }
}

void Crowd::leave()
{
    clients_.clear();
    dirty_.clear();
    logged_on_ = 0;
}

void Crowd::connect(std::size_t account)
{
    auto& client = clients_.emplace_back();
    client.name = account_name(account);
    client.socket = connected_socket(account, port_);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = clients_.size() - 1;
    epoll_ctl(epoll_.number(), EPOLL_CTL_ADD, client.socket.number(), &event);
}

void Crowd::request(
    std::size_t client, std::string_view number, std::string_view keyword, std::string_view body)
{
    auto& each = clients_[client];
    add_envelope(each.output, number, keyword, "sessionidvalue=" + each.session + " " + std::string(body));
    if (!each.queued) {
        each.queued = true;
        dirty_.push_back(client);
    }
}

void Crowd::flush()
{
    for (const auto client : dirty_) {
        write(clients_[client]);
        clients_[client].queued = false;
    }
    dirty_.clear();
}

void Crowd::write(Client& client)
{
    std::size_t written = 0;
    while (written < client.output.size()) { // blocks when the server is behind: it never waits for us
        const auto size = ::send(client.socket.number(), client.output.data() + written,
            client.output.size() - written, MSG_NOSIGNAL);
        if (size < 0) {
            throw std::runtime_error(
                "the connection of " + client.name + " is gone: " + std::strerror(errno));
        }
        written += static_cast<std::size_t>(size);
    }
    client.output.clear();
}

void Crowd::poll(std::chrono::milliseconds patience)
{
    std::array<epoll_event, 256> events{};
    const int count = epoll_wait(
        epoll_.number(), events.data(), static_cast<int>(events.size()), static_cast<int>(patience.count()));
    for (int i = 0; i < count; ++i) {
        read(events[static_cast<std::size_t>(i)].data.u64);
    }
    flush();
}

void Crowd::poll_until(const std::function<bool()>& done)
{
    auto last = std::chrono::steady_clock::now();
    flush();
    while (!done()) {
        std::array<epoll_event, 256> events{};
        const int count = epoll_wait(epoll_.number(), events.data(), static_cast<int>(events.size()), 1000);
        const auto now = std::chrono::steady_clock::now();
        if (count > 0) {
            last = now;
        } else if (now - last > kSilence) {
            throw std::runtime_error("nothing has come from the server for thirty seconds");
        }
        for (int i = 0; i < count; ++i) {
            read(events[static_cast<std::size_t>(i)].data.u64);
        }
        flush();
    }
}

void Crowd::read(std::size_t client)
{
    static std::array<char, 65536> buffer;
    auto& each = clients_[client];
    const auto size = ::recv(each.socket.number(), buffer.data(), buffer.size(), 0);
    if (size <= 0) {
        throw std::runtime_error("the server has ended the connection of " + each.name);
    }
    std::string_view bytes(buffer.data(), static_cast<std::size_t>(size));
    while (const auto text = clients_[client].cutter.next_unit(bytes)) {
        handle(client, unit_in(*text));
    }
}

void Crowd::handle(std::size_t client, const Unit& unit)
{
    auto& each = clients_[client];
    if (each.logged_on) {
        if (handler_) {
            handler_(client, unit);
        }
    } else if (unit.keyword == "session") {
        each.session = value_in(unit.body, "sessionidvalue");
        add_envelope(each.output, "1", "logon",
            "screenname=" + credential(each.name) + " password=" + password_
                + " sessionidvalue=" + each.session);
        write(each);
    } else if (unit.keyword == "logon" && value_in(unit.body, "answer") != "accepted") {
        throw std::runtime_error("the logon of " + each.name + " was refused: " + std::string(unit.body));
    } else if (unit.keyword == "expirationtime") {
        each.logged_on = true;
        ++logged_on_;
    }
}

} // namespace velto::bench
