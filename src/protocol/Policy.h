// What the administrator's policy allows, and how long undelivered messages are kept, told to clients.
#pragma once

#include "base/Journal.h"
#include "config/Settings.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"

#include <functional>
#include <string>

namespace qz::protocol {

class Policy {
public:
    Policy(const net::ConnectionTable& connections, net::Sender& sender, config::Settings& settings,
        Journal& journal);

    /// Three answers in this order: file transfer, screen shots, the outside messaging network. Nothing for
    /// an empty name.
    void SendPolicy(const std::string& screen_name);
    /// Minutes, a whole number. Nothing for an empty name.
    void SendMessageExpirationTime(const std::string& screen_name);

    /// For every on-line record, in table order. The first is what the command queued by SendPolicyToClients
    /// does.
    void PropagatePolicy();
    void SendMessageExpirationTimeToClients();

private:
    void for_each_on_line(const std::function<void(const std::string& user)>& action) const;

    const net::ConnectionTable& connections_;
    net::Sender& sender_;
    config::Settings& settings_;
    Journal& journal_;
};

} // namespace qz::protocol
