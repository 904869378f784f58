// Texts of the server to everybody on line.
#pragma once

#include "base/Journal.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"

#include <string>
#include <string_view>

namespace qz::protocol {

class Announcements {
public:
    Announcements(const net::ConnectionTable& connections, net::Sender& sender, Journal& journal);

    /// Sends the text at once, under Notice, to every on-line record in table order, and logs how many were
    /// sent.
    void Send_MessageToAllActive(const std::string& text);
    /// The same with a command for the clients' programs, under RemoteCommand.
    void Send_RemoteCommand2All(const std::string& message, const std::string& remote_command);

private:
    void send_to_all(std::string_view keyword, const std::string& body);

    const net::ConnectionTable& connections_;
    net::Sender& sender_;
    Journal& journal_;
};

} // namespace qz::protocol
