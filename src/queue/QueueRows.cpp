#include "queue/QueueRows.h"

#include "base/Text.h"
#include "store/Statements.h"

#include <string>
#include <utility>

namespace qz::queue {

namespace statements = store::statements;
namespace tables = store::tables;

namespace {

/// Counts pass 32 bits in the life of a server.
std::int64_t count_in(platform::Recordset& row, const char* field)
{
    return static_cast<std::int64_t>(row.Fields(field).number());
}

MessageText text_in(platform::Recordset& row, const QueueRows::Texts& texts)
{
    const auto& key = row.Fields("IDQueueText");
    if (key.is_null()) {
        return row.Fields("Message").text();
    }
    const auto found = texts.find(static_cast<std::int64_t>(key.number()));
    return found == texts.end() ? MessageText() : found->second;
}

} // namespace

std::int64_t QueueRows::add(const QueueEntry& entry)
{
    const bool refers = entry.text.row() != 0;
    auto& row = refers ? new_reference_ : new_row_;
    auto value = row.values.begin();
    *value++ = entry.sender;
    *value++ = entry.recipient;
    *value++ = entry.MsgID;
    *value++ = refers ? platform::Value(entry.text.row()) : platform::Value(entry.text.str());
    *value++ = entry.room;
    *value++ = entry.receipt_requested;
    *value++ = entry.received_time;
    *value++ = entry.expiration_time;
    return database_.connection().insert_row(tables::kQueue, row);
}

bool QueueRows::has(const QueueEntry& entry)
{
    return database_.connection().finds(statements::kFindQueueRow,
        {std::to_string(entry.row), replace_all(entry.sender, "'", "''"),
            replace_all(entry.recipient, "'", "''"), decimal(entry.MsgID)});
}

void QueueRows::mark_sent(const QueueEntry& entry)
{
    sent_.values[1] = entry.progress.sent_time;
    database_.connection().update_row(tables::kQueue, entry.row, sent_);
}

void QueueRows::remove(std::int64_t row)
{
    remove(tables::kQueue, row);
}

std::int64_t QueueRows::add_text(const MessageText& text)
{
    return database_.connection().insert_row(tables::kQueueText, {{"Message"}, {text.str()}});
}

void QueueRows::remove_text(std::int64_t row)
{
    remove(tables::kQueueText, row);
}

void QueueRows::remove(const platform::Table& table, std::int64_t row)
{
    try {
        database_.connection().delete_row(table, row);
    } catch (const EngineError& error) {
        if (error.number() != number_of(DatabaseError::RowGone)) {
            throw;
        }
    }
}

QueueRows::Texts QueueRows::texts()
{
    Texts texts;
    for (auto rows = database_.open(statements::kSelectQueueTexts); !rows.AtEnd(); rows.MoveNext()) {
        const auto key = static_cast<std::int64_t>(rows.Fields("IDQueueText").number());
        MessageText text(rows.Fields("Message").text());
        text.set_several_recipients();
        text.set_row(key);
        texts.emplace(key, std::move(text));
    }
    return texts;
}

std::size_t QueueRows::count()
{
    return static_cast<std::size_t>(database_.open(statements::kSelectQueue).RecordCount());
}

std::vector<QueueEntry> QueueRows::load(const Texts& texts)
{
    std::vector<QueueEntry> entries;
    auto rows = database_.open(statements::kSelectQueue);
    entries.reserve(static_cast<std::size_t>(rows.RecordCount()));
    for (; !rows.AtEnd(); rows.MoveNext()) {
        QueueEntry entry;
        entry.row = static_cast<std::int64_t>(rows.Fields("IDQueue").number());
        entry.sender = rows.Fields("UserName_From").text();
        entry.recipient = rows.Fields("UserName_To").text();
        entry.text = text_in(rows, texts);
        const auto& msg_id = rows.Fields("MsgID");
        entry.MsgID = msg_id.is_null() ? 0 : msg_id.number();
        entry.received_time = rows.Fields("ReceivedTime").date();
        entry.expiration_time = rows.Fields("ExpirationTime").date();
        entry.receipt_requested = rows.Fields("ReceiptRequested").boolean();
        entry.progress.sent = rows.Fields("Sent").boolean();
        entry.progress.sent_time = rows.Fields("SentTime").date();
        entry.room = rows.Fields("RoomName").text();
        entries.push_back(std::move(entry));
    }
    return entries;
}

std::optional<QueueCounts> QueueRows::counts()
{
    auto row = database_.open(statements::kSelectQueueCount);
    if (row.AtEnd()) {
        return std::nullopt;
    }
    counts_row_ = count_in(row, "IDQueueCount");
    return QueueCounts{count_in(row, "Accepted"), count_in(row, "Confirmed"), count_in(row, "Expired")};
}

void QueueRows::write(const QueueCounts& counts)
{
    const platform::RowChange change{
        {"Accepted", "Confirmed", "Expired"}, {counts.accepted, counts.confirmed, counts.expired}};
    auto& connection = database_.connection();
    if (counts_row_ != 0 || this->counts()) {
        connection.update_row(tables::kQueueCount, counts_row_, change);
    } else {
        counts_row_ = connection.insert_row(tables::kQueueCount, change);
    }
}

} // namespace qz::queue
