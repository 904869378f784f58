#include "queue/MessageRows.h"

#include "base/Guarded.h"
#include "store/Statements.h"

#include <algorithm>
#include <cstddef>
#include <functional>

namespace qz::queue {

namespace statements = store::statements;
namespace tables = store::tables;

namespace {

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
    const auto key = database_.add(tables::kMessages, new_row_);
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
    return database_.finds(
        saved ? statements::kSelectMessage : statements::kFindMessage, sender, recipient, msg_id);
}

void MessageRows::read_numbers(std::int64_t count)
{
    if (!read_until_) {
        const auto last = database_.query(statements::kSelectLastMessage);
        const auto& key = last.front()["LastMessage"];
        last_before_ = key.is_null() ? 0 : static_cast<std::int64_t>(key.number());
        read_until_ = 0;
        numbers_.make_room(static_cast<std::size_t>((std::min)(count, last_before_)));
    }
    if (all_numbers_read()) {
        return;
    }
    const auto until = (std::min)(*read_until_ + count, last_before_);
    const auto add = [&](const auto& /*columns*/, const std::vector<platform::Value>& row) {
        if (!row.front().is_null()) { // or a text, which other programs can write
            attempt([&] { numbers_.add(row.front().number()); });
        }
    };
    database_.visit(statements::kSelectMsgIDs, add, *read_until_, until);
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
    const auto rows = database_.query(statements::kSelectMessage, entry.sender, entry.recipient, entry.MsgID);
    database_.update(tables::kMessages, rows.front().key(), state_);
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
        database_.update(tables::kMessages, row, state_);
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
    const auto rows = recipient.empty()
        ? database_.query(statements::kSelectMessagesByMsgID, msg_id)
        : database_.query(statements::kSelectMessagesOfRecipient, msg_id, recipient);
    ConfirmedRow found{.rows = static_cast<std::int32_t>(rows.size())};
    if (found.rows != 1) {
        return found;
    }
    const auto row = rows.front();
    found.receipt_requested = row["ReceiptRequested"].boolean();
    found.sender = row["UserName_From"].text();
    found.recipient = row["UserName_To"].text();
    const auto expiration = row["ExpirationTime"].date();
    found.was_expired = !row["Delivered"].boolean() && !expiration.empty() && expiration < now;
    database_.update(tables::kMessages, row.key(), {{"Delivered", "DeliveredTime"}, {true, now}});
    return found;
}

} // namespace qz::queue
