#include "Relay.h"

#include "Process.h"
#include "Wire.h"
#include "base/EngineError.h"
#include "client/Descriptor.h"
#include "helpers/SettingsCipher.h"
#include "helpers/UnitCutter.h"
#include "platform/sodium/SodiumCrypto.h"

#include <array>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unordered_map>
#include <vector>

namespace velto::bench {

namespace {

using qz::client::Descriptor;
using qz::helpers::SettingsCipher;

/// Credentials that travel as they stand need no key.
class NoKey final : public qz::helpers::KeySource {
public:
    const qz::helpers::Crypto::Key& key() override { return existing_key(); }
    const qz::helpers::Crypto::Key& existing_key() override
    {
        throw qz::runtime_error(qz::RuntimeError::Internal, "The relay has no key");
    }
};

class Relay {
public:
    explicit Relay(std::uint16_t port) : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        setsockopt(listener_.number(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(listener_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0
            || listen(listener_.number(), 4096) != 0) {
            throw std::runtime_error("the relay cannot listen");
        }
        watch(listener_.number());
    }

    [[noreturn]] void run()
    {
        std::array<epoll_event, 256> events{};
        for (;;) {
            const int count = epoll_wait(epoll_.number(), events.data(), static_cast<int>(events.size()), -1);
            for (int i = 0; i < count; ++i) {
                const int socket = events[static_cast<std::size_t>(i)].data.fd;
                socket == listener_.number() ? accept_one() : read(socket);
            }
            flush();
        }
    }

private:
    struct Peer {
        Descriptor socket;
        std::string name;
        qz::helpers::UnitCutter cutter;
        std::string output;
        Peer* partner = nullptr; // who wrote last, and so is told of a confirmation
        bool queued = false;
    };

    void watch(int socket)
    {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = socket;
        epoll_ctl(epoll_.number(), EPOLL_CTL_ADD, socket, &event);
    }

    void accept_one()
    {
        Descriptor socket(accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC));
        if (socket.number() < 0) {
            return;
        }
        const int on = 1;
        setsockopt(socket.number(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        const auto place = static_cast<std::size_t>(socket.number());
        if (peers_.size() <= place) {
            peers_.resize(place + 1);
        }
        watch(socket.number());
        peers_[place] = std::make_unique<Peer>();
        peers_[place]->socket = std::move(socket);
        say(*peers_[place], "1", "session", "sessionidvalue=1");
    }

    void read(int socket)
    {
        static std::array<char, 65536> buffer;
        auto& peer = peers_[static_cast<std::size_t>(socket)];
        const auto size = recv(socket, buffer.data(), buffer.size(), 0);
        if (size <= 0) {
            forget(peer);
            return;
        }
        std::string_view bytes(buffer.data(), static_cast<std::size_t>(size));
        while (const auto text = peer->cutter.next_unit(bytes)) {
            handle(*peer, unit_in(*text));
        }
    }

    /// What this peer was told last is lost with it; nobody measures that.
    void forget(std::unique_ptr<Peer>& peer)
    {
        flush();
        by_name_.erase(peer->name);
        std::erase(room_, peer.get());
        for (auto& other : peers_) {
            if (other && other->partner == peer.get()) {
                other->partner = nullptr;
            }
        }
        peer.reset();
    }

    void handle(Peer& peer, const Unit& unit)
    {
        if (unit.keyword == "logon") {
            auto name = value_in(unit.body, "screenname");
            name.remove_prefix((std::min)(name.size(), SettingsCipher::Marker.size()));
            peer.name = cipher_.DecodeCredential(name, {});
            by_name_[peer.name] = &peer;
            say(peer, "1", "logon", "answer=accepted");
            say(peer, "1", "expirationtime", "expiration=15");
        } else if (unit.keyword == "msg") {
            pass_on(peer, unit);
        } else if (unit.keyword == "receipt" && peer.partner != nullptr) {
            say(*peer.partner, "1", "receipt",
                "received=" + std::string(value_in(unit.body, "msgid")) + " screennameto=" + peer.name);
        } else if (unit.keyword == "room") {
            room_.push_back(&peer);
            say(peer, "1", "room", "action=joinok");
        }
    }

    void pass_on(Peer& peer, const Unit& unit)
    {
        const auto to = value_in(unit.body, "screennameto");
        const auto body = "screennamefrom=" + peer.name + " msg=" + std::string(value_in(unit.body, "msg"));
        if (to.starts_with('#')) {
            for (auto* member : room_) {
                if (member != &peer) {
                    say(*member, unit.number, "msg", body);
                }
            }
            return;
        }
        const auto found = by_name_.find(std::string(to));
        if (found != by_name_.end()) {
            found->second->partner = &peer;
            say(*found->second, unit.number, "msg", body);
        }
    }

    void say(Peer& peer, std::string_view number, std::string_view keyword, std::string_view body)
    {
        add_frame(peer.output, number, keyword, body);
        if (!peer.queued) {
            peer.queued = true;
            queued_.push_back(&peer);
        }
    }

    void flush()
    {
        for (auto* peer : queued_) {
            // The clients of the generator always read, so a blocking socket is good enough here.
            send(peer->socket.number(), peer->output.data(), peer->output.size(), MSG_NOSIGNAL);
            peer->output.clear();
            peer->queued = false;
        }
        queued_.clear();
    }

    Descriptor listener_;
    Descriptor epoll_{epoll_create1(EPOLL_CLOEXEC)};
    std::vector<std::unique_ptr<Peer>> peers_; // by socket
    std::unordered_map<std::string, Peer*> by_name_;
    std::vector<Peer*> room_;
    std::vector<Peer*> queued_;
    qz::platform::SodiumCrypto crypto_;
    NoKey no_key_;
    SettingsCipher cipher_{crypto_, no_key_};
};

} // namespace

void run_relay(std::uint16_t port)
{
    raise_file_limit();
    Relay(port).run();
}

} // namespace velto::bench
