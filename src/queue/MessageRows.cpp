#include "queue/MessageRows.h"

#include "base/Text.h"
#include "store/Statements.h"

namespace qz::queue {

namespace statements = store::statements;

namespace {

/// A name as it stands between quotes.
std::string quoted(const std::string& name)
{
    return replace_all(name, "'", "''");
}

} // namespace

void MessageRows::save(const QueueEntry& entry)
{
    auto row = database_.open(statements::kSelectMessagesForAdding);
    row.AddNew();
    row.SetField("UserName_From", entry.sender);
    row.SetField("UserName_To", entry.recipient);
    row.SetField("MsgID", entry.MsgID);
    row.Update();
}

bool MessageRows::contains(const std::string& sender, const std::string& recipient, double msg_id)
{
    return !database_.open(statements::kSelectMessage, {quoted(sender), quoted(recipient), decimal(msg_id)})
                .AtEnd();
}

void MessageRows::write_back(const QueueEntry& entry)
{
    auto row = database_.open(
        statements::kSelectMessage, {quoted(entry.sender), quoted(entry.recipient), decimal(entry.MsgID)});
    row.SetField("ReceiptRequested", entry.receipt_requested);
    row.SetField("Sent", entry.sent);
    row.SetField("SentTime", entry.sent_time);
    row.SetField("ReceivedTime", entry.received_time);
    row.SetField("ExpirationTime", entry.expiration_time);
    row.SetField("Delivered", entry.delivered);
    row.SetField("DeliveredTime", entry.delivered_time);
    row.SetField("Ignore", entry.ignore);
    row.Update();
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
