#include "queue/MessageQueue.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace qz::queue {

using helpers::protocol_keywords;

namespace {

constexpr std::int64_t kRetrySeconds = 10;
constexpr std::int64_t kUnconfirmedSeconds = 15;
constexpr std::int64_t kLongestPause = 240;         // between two attempts at a message that nobody confirms
constexpr int kMostDoublings = 4;                   // of the first pause, until it is the longest
constexpr std::int32_t kMostResends = 1000;         // in one walk, so that a tick stays short
constexpr std::int64_t kNumbersAtStart = 1'000'000; // take up to half a second
constexpr std::int64_t kNumbersATick = 5'000;
constexpr std::int64_t kSecondsPerMinute = 60;
constexpr std::int64_t kSecondsPerDay = 86400;

std::string sender_and_recipient(const QueueEntry& entry)
{
    return joined({" from ", entry.sender, " to ", entry.recipient});
}

} // namespace

MessageQueue::MessageQueue(store::Database& database, Delivery delivery, store::AutoReplies& auto_replies,
    Rules rules, helpers::MessageParser& parser, const Clock& clock, Journal& journal)
    : rows_(database), kept_(database, journal), delivery_(delivery), auto_replies_(auto_replies),
      rules_(rules), parser_(parser), clock_(clock), journal_(journal)
{
}

bool MessageQueue::QueueMessage_Put(const NewMessage& message, bool recipient_on_line)
{
    require_whole_turn();
    return guarded(journal_, "QueueMessage_Put", message.remote_ip, false, [&] {
        if (is_repeated(message)) {
            journal_.Log("Message repeated with MsgID " + decimal(message.msg_id) + " from " + message.sender
                    + " to " + message.recipient,
                message.sender, message.remote_ip);
            enter_lost(message);
        } else {
            put(message, recipient_on_line);
        }
        return true;
    });
}

/// 0 is no number that a client may give.
bool MessageQueue::is_repeated(const NewMessage& message)
{
    return message.msg_id != 0 && rules_.deployment.durable_queue()
        && (table_.holds(message.sender, message.recipient, message.msg_id)
            || rows_.contains(message.sender, message.recipient, message.msg_id));
}

/// What was stored in a turn that counts as lost is in no table but the database's.
void MessageQueue::enter_lost(const NewMessage& message)
{
    if (table_.holds(message.sender, message.recipient, message.msg_id)) {
        return;
    }
    if (auto entry = kept_.find_lost(message.sender, message.recipient, message.msg_id)) {
        enter(std::move(*entry));
    }
}

void MessageQueue::put(const NewMessage& message, bool recipient_on_line)
{
    const auto now = clock_.now();
    QueueEntry entry{.sender = message.sender,
        .recipient = message.recipient,
        .text = message.text,
        .MsgID = message.msg_id,
        .received_time = now,
        .expiration_time = message.expiration_time,
        .receipt_requested = message.receipt_requested,
        .room = message.room};
    const bool auto_reply = auto_replies_.Retrieve_AutoReply(message.recipient);
    std::string note;
    if (auto_reply && !recipient_on_line) {
        entry.expiration_time = now.plus_months(1);
        note = " ##The expiration date for the message you wrote has been moved from the IM server to "
            + entry.expiration_time.text() + " instead of " + message.expiration_time.text() + "##";
    }
    save(entry);
    if (auto_reply) {
        auto reply = automatic_reply(entry, note);
        save(reply);
        enter(std::move(entry));
        enter(std::move(reply));
    } else {
        enter(std::move(entry));
    }
    const bool to_user = message.room.empty();
    journal_.Log(joined({"New message from ", message.sender, to_user ? " to " : " for room ",
                     to_user ? message.recipient : message.room, " with MsgID ", decimal(message.msg_id)}),
        message.sender, message.remote_ip);
}

/// Without DurableQueue a message that cannot be recorded is delivered all the same.
void MessageQueue::save(QueueEntry& entry)
{
    if (!rules_.deployment.durable_queue()) {
        guarded(journal_, "SaveMessage", no_address, [&] { rows_.save(entry); });
        return;
    }
    const auto row = rows_.save(entry);
    entry.message_row = entry.MsgID == 0 ? 0 : row; // a message with a number has no equal: see is_repeated
    kept_.add(entry);
}

void MessageQueue::enter(QueueEntry entry)
{
    const auto place = table_.put(std::move(entry));
    kept_.entered(table_.at(place));
}

/// The recipient's automatic reply to a message: never answered by another one, and without a receipt.
QueueEntry MessageQueue::automatic_reply(const QueueEntry& message, const std::string& note)
{
    const auto now = message.received_time;
    return {.sender = message.recipient,
        .recipient = message.sender,
        .text = auto_replies_.Retrieve_AutoReplyMessage(message.recipient) + note,
        .MsgID = parser_.fresh_number(),
        .received_time = now,
        .expiration_time =
            now.plus_seconds(kSecondsPerMinute * rules_.settings.get_Message_Expiration_Time()),
        .automatic = true};
}

void MessageQueue::QueueMessage_Send()
{
    guarded(journal_, "QueueMessage_Send", no_address, [&] {
        table_.make_due(clock_.now(), kRetrySeconds);
        // By place: sending may yield, and the queue may change in the middle of the walk.
        bool any_kept = true;
        while (std::exchange(any_kept, false)) { // what is due behind one that is kept may stand before it
            for (auto place = table_.next_due(0); place; place = table_.next_due(*place + 1)) {
                any_kept = send(*place) || any_kept;
            }
        }
    });
}

/// @return true when the message went out and is kept until it is confirmed.
bool MessageQueue::send(QueueTable::Place place)
{
    const auto number = table_.at(place).number;
    const auto recipient = table_.at(place).recipient;
    const bool careful = rules_.deployment.keep_until_confirmed() || rules_.deployment.durable_queue();
    if (careful && !delivery_.has_room(recipient)) {
        return false; // stays due: a connection that is given more than it takes would be closed
    }
    const auto connections = table_.connections_of_recipient(place);
    // Before the attempt: a nested walk must not send the same message.
    table_.set_attempted(place, clock_.now());
    if (!send_to_socket(place, table_.at(place)) || table_.numbered(number) != place) {
        return false;
    }
    if (careful
        && (table_.connections_of_recipient(place) != connections || !delivery_.is_connected(recipient))) {
        return false; // while sending yielded, the connection broke, or another one took its place
    }
    return sent(place);
}

/// @param entry  that of the place, or a copy of it.
/// @return true when it went out; the entry may be gone by then, for sending may yield.
bool MessageQueue::send_to_socket(QueueTable::Place place, const QueueEntry& entry)
{
    const auto number = entry.number;
    const bool logs = logs_offline(place);
    const bool went_out = delivery_.Send_Message(entry, logs);
    if ((went_out || logs) && table_.numbered(number) == place) {
        table_.set_offline_logged(place, went_out ? DateTime{} : clock_.now());
    }
    return went_out;
}

/// Whether the log is to be told if the recipient is off line. With OfflineLogMinutes it is told now and
/// then, and anew when something was sent since.
bool MessageQueue::logs_offline(QueueTable::Place place) const
{
    const auto last = table_.offline_logged(place);
    if (last.empty()) {
        return true;
    }
    const auto pause = rules_.deployment.offline_log_pause();
    const auto since = seconds_between(last, clock_.now());
    return !pause || since < 0 || since >= std::chrono::seconds(*pause).count();
}

bool MessageQueue::sent(QueueTable::Place place)
{
    const auto now = clock_.now();
    kept_.changing(table_.at(place));
    table_.set_sent(place, now, now.plus_seconds(-kSecondsPerDay), now.plus_seconds(kUnconfirmedSeconds));
    if (rules_.deployment.keep_until_confirmed()) {
        kept_.sent(table_.at(place));
        return true;
    }
    QueueMessage_MoveFromQueue(table_.at(place).number);
    return false;
}

void MessageQueue::QueueMessage_PurgeExpired()
{
    guarded(journal_, "QueueMessage_PurgeExpired", no_address, [&] {
        const auto now = clock_.now();
        while (const auto place = table_.next_to_expire(now)) {
            const auto& entry = table_.at(*place);
            journal_.Log("Message expired " + decimal(entry.MsgID) + sender_and_recipient(entry),
                entry.sender, protocol_keywords().HostAddress);
            QueueMessage_SetToExpired(entry.number, true);
        }
    });
}

void MessageQueue::QueueMessage_Send_Confirmed_and_NotExpired()
{
    guarded(journal_, "QueueMessage_Send_Confirmed_and_NotExpired", no_address, [&] {
        const auto now = clock_.now();
        std::int32_t count = 0;
        for (; count < kMostResends; ++count) {
            const auto place = table_.next_to_resend(now, kLongestPause);
            if (!place) {
                break;
            }
            QueueMessage_SendNotExpired(*place);
        }
        if (count > 0) {
            journal_.log_own("Messages not confirmed and not expired " + std::to_string(count));
        }
    });
}

/// Sends a message again whose confirmation has not come. To a recipient who is gone it waits to be sent,
/// behind those that are older.
void MessageQueue::QueueMessage_SendNotExpired(QueueTable::Place place)
{
    const auto entry = table_.at(place); // a copy: sending may yield
    const auto now = clock_.now();
    const auto pause = (std::min)(kUnconfirmedSeconds << (entry.progress.resends + 1), kLongestPause);
    const bool room = delivery_.has_room(entry.recipient);
    table_.set_resent(place,
        room ? (std::min)(entry.progress.resends + 1, kMostDoublings) : entry.progress.resends,
        now.plus_seconds(room ? pause : kUnconfirmedSeconds));
    if (!room) {
        return; // what it was sent before is still on its way
    }
    const auto id = decimal(entry.MsgID);
    const bool went_out = send_to_socket(place, entry);
    journal_.Log(went_out ? "Message resent with MsgID " + id + " and delivered" + sender_and_recipient(entry)
                + " expires on " + entry.expiration_time.text()
                          : "Message resent but not delivered with MsgID " + id,
        entry.recipient, protocol_keywords().HostAddress);
    if (!went_out && table_.numbered(entry.number) == place) {
        table_.set_unsent(place, now);
    }
}

void MessageQueue::QueueMessage_SetToDelivered(double msg_id, const std::string& recipient)
{
    require_whole_turn();
    guarded(journal_, "QueueMessage_SetToDelivered", no_address, [&] {
        const auto place = table_.undelivered(msg_id, recipient);
        if (!place) {
            confirm_row(msg_id, recipient);
            return;
        }
        kept_.changing(table_.at(*place));
        table_.set_delivered(*place, clock_.now());
        // Copies: the entry goes, and others may act on the log line or while the receipt is sent.
        const auto sender = table_.at(*place).sender;
        const auto its_recipient = table_.at(*place).recipient;
        const bool receipt = table_.at(*place).receipt_requested;
        const bool kept = table_.at(*place).row != 0;
        journal_.Log(joined({"Message confirmed with MsgID ", decimal(msg_id), " from ", sender, " to ",
                         its_recipient}),
            its_recipient, protocol_keywords().HostAddress);
        if (kept) {
            QueueMessage_MoveFromQueue_local(*place); // not with the next sweep: its receipt tells of it now
        }
        if (receipt) {
            delivery_.send_receipt(sender, its_recipient, msg_id);
        }
    });
}

/// A confirmation of a message that has left the queue is settled in the table.
void MessageQueue::confirm_row(double msg_id, const std::string& recipient)
{
    const auto row = rows_.confirm(msg_id, recipient, clock_.now());
    const auto id = decimal(msg_id);
    if (row.rows == 0) {
        journal_.log_own("No message found to confirm with MsgID " + id);
        return;
    }
    if (row.rows > 1) {
        journal_.log_own("Too many messages into the messages table to confirm with MsgID " + id);
        return;
    }
    if (row.was_expired && rules_.deployment.durable_queue() && rules_.deployment.keep_until_confirmed()) {
        kept_.confirmed_late();
    }
    if (row.receipt_requested) {
        delivery_.send_receipt(row.sender, row.recipient, msg_id);
    }
}

void MessageQueue::QueueMessage_SetToExpired(std::int64_t number, bool expired)
{
    if (const auto place = table_.numbered(number)) {
        table_.set_expired(*place, expired);
    }
}

void MessageQueue::QueueMessage_MoveFromQueue(std::int64_t number)
{
    if (number != 0) {
        if (const auto place = table_.numbered(number)) {
            QueueMessage_MoveFromQueue_local(*place);
        }
        return;
    }
    for (auto place = table_.next_finished(0); place; place = table_.next_finished(*place + 1)) {
        QueueMessage_MoveFromQueue_local(*place);
    }
}

/// The entry is freed even when its row is gone: an entry that can never be written back would stay for ever.
void MessageQueue::QueueMessage_MoveFromQueue_local(QueueTable::Place place)
{
    guarded(
        journal_, "QueueMessage_MoveFromQueue_local", no_address, [&] { kept_.leaving(table_.at(place)); });
    guarded(journal_, "QueueMessage_MoveFromQueue_local", no_address,
        [&] { rows_.write_back(table_.at(place)); });
    kept_.left(table_.free(place));
}

void MessageQueue::QueueMessage_ClearQueue()
{
    table_.clear();
    kept_.forget();
    rows_.forget();
}

void MessageQueue::read_numbers()
{
    if (rules_.deployment.durable_queue() && !rows_.all_numbers_read()) {
        guarded(journal_, "read_numbers", no_address, [&] { rows_.read_numbers(kNumbersATick); });
    }
}

void MessageQueue::require_whole_turn()
{
    if (rules_.deployment.durable_queue()) {
        kept_.require_whole_turn();
    }
}

void MessageQueue::load()
{
    if (!rules_.deployment.durable_queue()) {
        return;
    }
    rows_.read_numbers(kNumbersAtStart);
    const auto now = clock_.now();
    for (auto& entry : kept_.load()) {
        // Nobody is connected: what was sent is sent again at the recipient's next logon.
        entry.progress.sent = entry.progress.sent && rules_.deployment.keep_until_confirmed();
        entry.progress.resend_time = now.plus_seconds(kUnconfirmedSeconds);
        table_.put(std::move(entry));
    }
}

bool MessageQueue::recipient_changed(const std::string& user)
{
    table_.count_connection(user);
    if (!rules_.deployment.keep_until_confirmed()) {
        return false;
    }
    table_.set_unsent(user);
    return true;
}

std::vector<QueueMessageSmall> MessageQueue::get_QueueMessages() const
{
    std::vector<QueueMessageSmall> messages;
    messages.reserve(table_.count_in_use());
    for (const auto place : table_.in_use()) {
        const auto& entry = table_.at(place);
        messages.push_back({entry.sender, entry.recipient, entry.received_time, entry.expiration_time});
    }
    return messages;
}

} // namespace qz::queue
