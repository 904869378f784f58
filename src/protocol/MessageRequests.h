// Instant messages, typing notices and confirmations: from a client's request into the queue.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Deployment.h"
#include "config/Settings.h"
#include "helpers/MessageParser.h"
#include "net/ConnectionTable.h"
#include "net/Sender.h"
#include "net/SocketPool.h"
#include "protocol/Presence.h"
#include "protocol/Request.h"
#include "queue/MessageQueue.h"
#include "store/Accounts.h"
#include "store/AutoReplies.h"
#include "store/Rooms.h"

#include <optional>
#include <string>

namespace qz::protocol {

class MessageRequests {
public:
    /// Who may be written to, and what is known of them.
    struct People {
        store::Accounts& accounts;
        store::Rooms& rooms;
        store::AutoReplies& auto_replies;
        const Presence& presence;
        const net::ConnectionTable& connections;
    };
    /// Where texts go.
    struct Ways {
        queue::MessageQueue& queue;
        net::Sender& sender;
        const net::SocketPool& pool;
    };
    /// Times and safeguards, read at their use.
    struct Rules {
        const config::Settings& settings;
        const config::Deployment& deployment;
    };
    MessageRequests(People people, Ways ways, Rules rules, const helpers::MessageParser& parser,
        const Clock& clock, Journal& journal);

    /// Warns the sender of whatever stands against the message, then queues it: for a user, or for each other
    /// member of a room. Whoever writes to a room joins it. With DurableQueue a message that fails on the way
    /// is refused with a notice.
    void Request_Msg(const Request& request);
    void Request_Typing(const Request& request);
    void Request_MsgReceipt(const Request& request);
    /// Only when the recipient is on line.
    void Send_TypingMessage(
        const std::string& sender, const std::string& recipient, const std::string& remote_ip);
    /// The host's own text to one user, under Notice.
    void Send_InstantMessage(const std::string& message, const std::string& screen_name);

private:
    void take_message(const Request& request);
    std::optional<DateTime> expiration_of(const Request& request) const;
    queue::NewMessage message_in(const Request& request) const;
    bool recipient_exists(queue::NewMessage& message);
    void send_to_room(queue::NewMessage message);
    void send_to_user(const queue::NewMessage& message);
    const char* quota_against(const queue::NewMessage& message, std::size_t members) const;
    bool tell_over(const queue::NewMessage& message);
    bool tell_full(const queue::NewMessage& message, std::size_t members);
    void put(const queue::NewMessage& message);
    void refuse(const queue::NewMessage& message);
    void tell(const std::string& user, const std::string& notice);

    People people_;
    Ways ways_;
    Rules rules_;
    const helpers::MessageParser& parser_;
    const Clock& clock_;
    Journal& journal_;
};

} // namespace qz::protocol
