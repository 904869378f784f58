#include "queue/MessageRows.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "store/Statements.h"

#include <algorithm>
#include <cstddef>
#include <functional>

namespace qz::queue {

namespace statements = store::statements;
namespace tables = store::tables;

namespace {

/// A name as it stands between quotes.
std::string quoted(const std::string& name)
{
    return replace_all(name, "'", "''");
}

std::size_t hash_of(const std::string& sender, const std::string& recipient, double msg_id)
{
    constexpr std::size_t kOdd = 0x9E3779B97F4A7C15;
    const std::hash<std::string> hash;
    return (std::hash<double>{}(msg_id)*kOdd + hash(recipient)) * kOdd + hash(sender);
}

} // namespace

std::int64_t MessageRows::save(const QueueEntry& entry)
{
    new_row_.values[0] = entry.sender;
    new_row_.values[1] = entry.recipient;
    new_row_.values[2] = entry.MsgID;
    const auto key = database_.connection().add_row(tables::kMessages, new_row_);
    if (read_until_) {
        numbers_.add(entry.MsgID);
    }
    const auto hash = hash_of(entry.sender, entry.recipient, entry.MsgID);
    saved_.insert(hash);
    if (entry.MsgID == new_number_) {
        saved_with_it_.insert(hash);
    }
    return key;
}

bool MessageRows::contains(const std::string& sender, const std::string& recipient, double msg_id)
{
    if (all_numbers_read() && !numbers_.may_hold(msg_id)) {
        new_number_ = msg_id;
        saved_with_it_.clear();
        return false;
    }
    const auto hash = hash_of(sender, recipient, msg_id);
    if (msg_id == new_number_ && !saved_with_it_.contains(hash)) {
        return false;
    }
    const bool saved = saved_.contains(hash); // or one with the same hash
    return database_.connection().finds(saved ? statements::kSelectMessage : statements::kFindMessage,
        {quoted(sender), quoted(recipient), decimal(msg_id)});
}

void MessageRows::read_numbers(std::int64_t count)
{
    if (!read_until_) {
        auto last = database_.open(statements::kSelectLastMessage);
        const auto& key = last.Fields("LastMessage");
        last_before_ = key.is_null() ? 0 : static_cast<std::int64_t>(key.number());
        read_until_ = 0;
        numbers_.make_room(static_cast<std::size_t>((std::min)(count, last_before_)));
    }
    if (all_numbers_read()) {
        return;
    }
    const auto until = (std::min)(*read_until_ + count, last_before_);
    database_.connection().visit(
        platform::fill(statements::kSelectMsgIDs, {std::to_string(*read_until_), std::to_string(until)}),
        [&](const auto& /*columns*/, const std::vector<platform::Value>& row) {
            if (!row.front().is_null()) { // or a text, which other programs can write
                attempt([&] { numbers_.add(row.front().number()); });
            }
        });
    read_until_ = until;
}

void MessageRows::forget()
{
    numbers_.clear();
    read_until_.reset();
    new_number_.reset();
}

void MessageRows::write_back(const QueueEntry& entry)
{
    set_state(entry);
    if (entry.message_row != 0 && write_known(entry.message_row)) {
        return;
    }
    auto row = database_.open(
        statements::kSelectMessage, {quoted(entry.sender), quoted(entry.recipient), decimal(entry.MsgID)});
    for (std::size_t i = 0; i < state_.columns.size(); ++i) {
        row.SetField(state_.columns[i], state_.values[i]);
    }
    row.Update();
}

void MessageRows::set_state(const QueueEntry& entry)
{
    auto value = state_.values.begin();
    *value++ = entry.receipt_requested;
    *value++ = entry.progress.sent;
    *value++ = entry.progress.sent_time;
    *value++ = entry.received_time;
    *value++ = entry.expiration_time;
    *value++ = entry.progress.delivered;
    *value++ = entry.progress.delivered_time;
    *value++ = entry.ignore;
}

/// @return false when the row is not there any more.
bool MessageRows::write_known(std::int64_t row)
{
    try {
        database_.connection().update_row(tables::kMessages, row, state_);
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
    const auto expiration = row.Fields("ExpirationTime").date();
    found.was_expired = !row.Fields("Delivered").boolean() && !expiration.empty() && expiration < now;
    row.SetField("Delivered", true);
    row.SetField("DeliveredTime", now);
    row.Update();
    return found;
}

} // namespace qz::queue
