// The message queue: every instant message waits here until it went out or expired, in the order of each
// recipient. With KeepUntilConfirmed it waits until its recipient has confirmed it; with DurableQueue it is
// back after a restart.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Deployment.h"
#include "config/Settings.h"
#include "helpers/MessageParser.h"
#include "queue/Delivery.h"
#include "queue/KeptQueue.h"
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
    MessageText text;
    double msg_id = 0;     // envelope number with which it came
    std::string remote_ip; // of the sender
    bool receipt_requested = false;
    DateTime expiration_time;
    std::string room;            // empty for a message to a user
    std::int64_t lost_turns = 0; // MessageQueue::lost_turns when its request came
};

/// Every walk touches only what is due, whatever waits beside it.
class MessageQueue {
public:
    /// Times and safeguards, read at their use.
    struct Rules {
        config::Settings& settings;
        const config::Deployment& deployment;
    };
    MessageQueue(store::Database& database, Delivery delivery, store::AutoReplies& auto_replies, Rules rules,
        helpers::MessageParser& parser, const Clock& clock, Journal& journal);

    /// Puts a message into the queue and records it in `messages`. When the recipient is off line and has an
    /// automatic reply, the message waits a month; a recipient's automatic reply is queued to the sender.
    /// @param recipient_on_line  whether the recipient has a live session now.
    /// A kept message that the sender's client sends again, not knowing that it was accepted, is not put in
    /// twice. Errors are reported under "QueueMessage_Put"; the message is then not queued.
    /// @return false when it is not.
    bool QueueMessage_Put(const NewMessage& message, bool recipient_on_line);
    /// Whether DurableQueue is on and the message was accepted before: its sender's client has not heard of
    /// it and sends it again.
    bool is_repeated(const NewMessage& message);
    /// Sends what is due: the oldest message of each recipient, tried every ten seconds at most.
    void QueueMessage_Send();
    /// Marks and logs what has expired.
    void QueueMessage_PurgeExpired();
    /// Sends again what was sent more than 15 seconds ago and is not confirmed, then after ever longer
    /// pauses.
    void QueueMessage_Send_Confirmed_and_NotExpired();
    /// A recipient confirms a message. What is not in the queue any more is looked for in `messages`.
    /// @param recipient  whose messages count; empty for everybody's.
    void QueueMessage_SetToDelivered(double msg_id, const std::string& recipient = {});
    void QueueMessage_SetToExpired(std::int64_t number, bool expired);
    /// Writes one entry back to its row and frees it.
    /// @param number  0 for all that are delivered or expired.
    void QueueMessage_MoveFromQueue(std::int64_t number);
    void QueueMessage_ClearQueue();
    /// Reads on in the numbers of the messages that were there when the engine started, with each tick, so
    /// that it can tell by itself that a message is new.
    void read_numbers();
    /// Gives memory back that is not used any more. To be called with each tick.
    void shrink() { table_.shrink(); }

    /// Brings back what waited when the engine last ran, if DurableQueue is on. To be called while it is
    /// empty.
    /// @throws EngineError when the database fails: a server that cannot read what it owes must not go on.
    void load();
    /// A user's new connection record is filled, and nothing has been sent there yet; or one was released.
    /// What the user was sent before and has not confirmed is to be sent again, ahead of everything newer.
    /// @return true when what waits for the user is to go out at once.
    bool recipient_changed(const std::string& user);

    /// What this turn does to messages is to be stored as a whole or not at all, if DurableQueue is on.
    void require_whole_turn();
    // At the end of a turn of the loop.
    void turn_ending()
    {
        rows_.turn_ended();
        kept_.turn_ending();
    }
    void turn_stored() { kept_.turn_stored(); }
    void turn_lost()
    {
        ++lost_turns_;
        kept_.turn_lost(table_);
    }
    /// How many turns were lost. A request that began before the last of them must not put a message in any
    /// more: its sender's connection is broken, and the message comes again behind those that were lost.
    std::int64_t lost_turns() const { return lost_turns_; }

    std::vector<QueueMessageSmall> get_QueueMessages() const;
    std::size_t count() const { return table_.count_in_use(); }
    /// What waits, for the quotas: see QueueTable.
    std::size_t count_from(const std::string& sender, bool to_room) const
    {
        return table_.count_from(sender, to_room);
    }
    std::size_t count_to(const std::string& recipient) const { return table_.count_to(recipient); }
    std::size_t count_between(const std::string& sender, const std::string& recipient) const
    {
        return table_.count_between(sender, recipient);
    }
    std::size_t bytes_from(const std::string& sender) const { return table_.bytes_from(sender); }
    std::size_t bytes_to(const std::string& recipient) const { return table_.bytes_to(recipient); }
    /// All zero unless DurableQueue is on.
    const QueueCounts& counts() const { return kept_.counts(); }

private:
    void put(const NewMessage& message, bool recipient_on_line);
    void enter_lost(const NewMessage& message);
    QueueEntry automatic_reply(const QueueEntry& message, const std::string& note);
    void save(QueueEntry& entry);
    void enter(QueueEntry entry);
    bool send(QueueTable::Place place);
    bool send_to_socket(QueueTable::Place place, const QueueEntry& entry);
    bool logs_offline(QueueTable::Place place) const;
    bool sent(QueueTable::Place place);
    void QueueMessage_SendNotExpired(QueueTable::Place place);
    void QueueMessage_MoveFromQueue_local(QueueTable::Place place);
    void confirm_row(double msg_id, const std::string& recipient);

    QueueTable table_;
    MessageRows rows_;
    KeptQueue kept_;
    Delivery delivery_;
    store::AutoReplies& auto_replies_;
    Rules rules_;
    helpers::MessageParser& parser_;
    const Clock& clock_;
    Journal& journal_;
    std::int64_t lost_turns_ = 0;
};

} // namespace qz::queue
