// A user whose client lives through everything, and somebody else who logs on in the user's name.
#pragma once

#include "client/Connection.h"
#include "platform/SystemClock.h"
#include "platform/sodium/SodiumCrypto.h"
#include "torture/Truth.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace qz::torture {

class User final : public client::ClientEvents {
public:
    using Time = std::chrono::steady_clock::time_point;

    User(std::string name, std::uint16_t port, Truth& truth);

    void connected() override { }
    void logged_on() override { has_logged_on_ = true; }
    void refused(const std::vector<std::string>& reasons) override;
    void incoming(const client::Incoming& incoming) override;
    void disconnected(const client::Disconnected& /*disconnected*/) override { }
    void settled(client::MessageId id) override { truth_.accepted(id); }

    /// @param expires  server's local time.
    void write_to(const std::string& to, std::size_t length, std::optional<DateTime> expires);
    /// Is away for some time; what was written is kept.
    void leave(Time until);
    void come_back() { away_until_ = {}; }
    /// Does what is due. A client's own patience between two attempts grows to a minute; there is no time for
    /// that.
    void work(Time now);

    /// At least once.
    bool has_logged_on() const { return has_logged_on_; }
    const std::string& name() const { return name_; }
    client::Connection& connection() { return connection_; }

private:
    std::string name_;
    Truth& truth_;
    platform::SodiumCrypto crypto_;
    platform::SystemClock clock_;
    client::Connection connection_;
    Time away_until_{};
    Time retry_at_{};
    bool has_logged_on_ = false;
};

/// Logs on in another's name, hears what is said to that user, and confirms nothing.
class Thief {
public:
    Thief(std::string name, std::uint16_t port, std::chrono::steady_clock::time_point until);
    ~Thief();
    Thief(const Thief&) = delete;
    Thief& operator=(const Thief&) = delete;

    /// @return false when it has gone.
    bool work(std::chrono::steady_clock::time_point now);

private:
    std::string name_;
    std::chrono::steady_clock::time_point until_;
    int socket_ = -1;
    std::string heard_;
    bool said_ = false;
};

} // namespace qz::torture
