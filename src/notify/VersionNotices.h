// Tells clients on line which version is the latest and where it can be had.
#pragma once

#include "base/Journal.h"
#include "config/Settings.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"

#include <string>

namespace qz::notify {

class VersionNotices {
public:
    VersionNotices(const config::Settings& settings, const net::ConnectionTable& connections,
        net::Sender& sender, Journal& journal);

    /// To the user's socket; nothing is sent to who is not on line.
    void send_to(const std::string& user_name);
    /// To every on-line record, in table order.
    void send_to_all();

private:
    const config::Settings& settings_;
    const net::ConnectionTable& connections_;
    net::Sender& sender_;
    Journal& journal_;
};

} // namespace qz::notify
