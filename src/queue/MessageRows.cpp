#include "queue/MessageRows.h"

#include "base/Text.h"
#include "store/Statements.h"

namespace qz::queue {

namespace statements = store::statements;
namespace tables = store::tables;

namespace {

/// A name as it stands between quotes.
std::string quoted(const std::string& name)
{
    return replace_all(name, "'", "''");
}

std::string name_of(const std::string& sender, const std::string& recipient, double msg_id)
{
    return decimal(msg_id) + '\n' + recipient + '\n' + sender;
}

platform::RowChange state_of(const QueueEntry& entry)
{
    return {{"ReceiptRequested", "Sent", "SentTime", "ReceivedTime", "ExpirationTime", "Delivered",
                "DeliveredTime", "Ignore"},
        {entry.receipt_requested, entry.sent, entry.sent_time, entry.received_time, entry.expiration_time,
            entry.delivered, entry.delivered_time, entry.ignore}};
}

} // namespace

std::int64_t MessageRows::save(const QueueEntry& entry)
{
    const auto key = database_.connection().add_row(tables::kMessages,
        {{"UserName_From", "UserName_To", "MsgID"}, {entry.sender, entry.recipient, entry.MsgID}});
    saved_.insert(name_of(entry.sender, entry.recipient, entry.MsgID));
    return key;
}

bool MessageRows::contains(const std::string& sender, const std::string& recipient, double msg_id)
{
    return saved_.contains(name_of(sender, recipient, msg_id))
        || database_.connection().finds(
            statements::kFindMessage, {decimal(msg_id), quoted(recipient), quoted(sender)});
}

void MessageRows::write_back(const QueueEntry& entry)
{
    if (entry.message_row != 0 && write_known(entry)) {
        return;
    }
    auto row = database_.open(
        statements::kSelectMessage, {quoted(entry.sender), quoted(entry.recipient), decimal(entry.MsgID)});
    const auto change = state_of(entry);
    for (std::size_t i = 0; i < change.columns.size(); ++i) {
        row.SetField(change.columns[i], change.values[i]);
    }
    row.Update();
}

/// @return false when the row is not there any more.
bool MessageRows::write_known(const QueueEntry& entry)
{
    try {
        database_.connection().update_row(tables::kMessages, entry.message_row, state_of(entry));
        return true;
    } catch (const EngineError& error) {
        if (error.number() != number_of(DatabaseError::RowGone)) {
            throw;
        }
        return false;
    }
}

ConfirmedRow MessageRows::confirm(double msg_id, const std::string& recipient, DateTime now)
{
    const auto id = decimal(msg_id);
    auto row = recipient.empty()
        ? database_.open(statements::kSelectMessagesByMsgID, {id})
        : database_.open(statements::kSelectMessagesOfRecipient, {id, replace_all(recipient, "'", "''")});
    ConfirmedRow found{.rows = row.RecordCount()};
    if (found.rows != 1) {
        return found;
    }
    found.receipt_requested = row.Fields("ReceiptRequested").boolean();
    found.sender = row.Fields("UserName_From").text();
    found.recipient = row.Fields("UserName_To").text();
    row.SetField("Delivered", true);
    row.SetField("DeliveredTime", now);
    row.Update();
    return found;
}

} // namespace qz::queue
