// The message queue: every instant message waits here until it went out or expired, in the order of each
// recipient.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Settings.h"
#include "helpers/MessageParser.h"
#include "queue/Delivery.h"
#include "queue/MessageRows.h"
#include "queue/QueueMessageSmall.h"
#include "queue/QueueTable.h"
#include "store/AutoReplies.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qz::queue {

/// A message as its sender hands it in.
struct NewMessage {
    std::string sender;
    std::string recipient;
    std::string text;
    double msg_id = 0;     // envelope number with which it came
    std::string remote_ip; // of the sender
    bool receipt_requested = false;
    DateTime expiration_time;
    std::string room; // empty for a message to a user
};

/// Every walk touches only what is due, whatever waits beside it.
class MessageQueue {
public:
    MessageQueue(MessageRows rows, Delivery delivery, store::AutoReplies& auto_replies,
        config::Settings& settings, helpers::MessageParser& parser, const Clock& clock, Journal& journal);

    /// Puts a message into the queue and records it in `messages`. When the recipient is off line and has an
    /// automatic reply, the message waits a month; a recipient's automatic reply is queued to the sender.
    /// @param recipient_on_line  whether the recipient has a live session now.
    /// Errors are reported under "QueueMessage_Put"; the message is then not queued.
    void QueueMessage_Put(const NewMessage& message, bool recipient_on_line);
    /// Sends what is due: the oldest message of each recipient, tried every ten seconds at most.
    void QueueMessage_Send();
    /// Marks and logs what has expired.
    void QueueMessage_PurgeExpired();
    /// Sends again what was sent more than 15 seconds ago and is not confirmed.
    void QueueMessage_Send_Confirmed_and_NotExpired();
    /// A recipient confirms a message. What is not in the queue any more is looked for in `messages`.
    /// @param recipient  whose messages count; empty for everybody's.
    void QueueMessage_SetToDelivered(double msg_id, const std::string& recipient = {});
    void QueueMessage_SetToExpired(std::int64_t number, bool expired);
    /// Writes one entry back to its row and frees it.
    /// @param number  0 for all that are delivered or expired.
    void QueueMessage_MoveFromQueue(std::int64_t number);
    void QueueMessage_ClearQueue();

    std::vector<QueueMessageSmall> get_QueueMessages() const;
    std::size_t count() const { return table_.count_in_use(); }
    /// What waits, for the quotas: see QueueTable.
    std::size_t count_from(const std::string& sender, bool to_room) const
    {
        return table_.count_from(sender, to_room);
    }
    std::size_t count_to(const std::string& recipient) const { return table_.count_to(recipient); }

private:
    QueueEntry automatic_reply(const QueueEntry& message, const std::string& note);
    void send(QueueTable::Place place);
    void QueueMessage_SendNotExpired(QueueTable::Place place);
    void QueueMessage_MoveFromQueue_local(QueueTable::Place place);
    void confirm_row(double msg_id, const std::string& recipient);

    QueueTable table_;
    MessageRows rows_;
    Delivery delivery_;
    store::AutoReplies& auto_replies_;
    config::Settings& settings_;
    helpers::MessageParser& parser_;
    const Clock& clock_;
    Journal& journal_;
};

} // namespace qz::queue
