#include "queue/QueueRows.h"

#include "store/Statements.h"

#include <string>
#include <utility>

namespace qz::queue {

namespace statements = store::statements;
namespace tables = store::tables;

namespace {

/// Counts pass 32 bits in the life of a server.
std::int64_t count_in(const store::Rows::Row& row, const char* field)
{
    return static_cast<std::int64_t>(row[field].number());
}

MessageText text_in(const store::Rows::Row& row, const QueueRows::Texts& texts)
{
    const auto& key = row["IDQueueText"];
    if (key.is_null()) {
        return row["Message"].text();
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
    return database_.insert(tables::kQueue, row);
}

bool QueueRows::has(const QueueEntry& entry)
{
    return database_.finds(statements::kFindQueueRow, entry.row, entry.sender, entry.recipient, entry.MsgID);
}

void QueueRows::mark_sent(const QueueEntry& entry)
{
    sent_.values[1] = entry.progress.sent_time;
    database_.update(tables::kQueue, entry.row, sent_);
}

void QueueRows::remove(std::int64_t row)
{
    remove(tables::kQueue, row);
}

std::int64_t QueueRows::add_text(const MessageText& text)
{
    return database_.insert(tables::kQueueText, {{"Message"}, {text.str()}});
}

void QueueRows::remove_text(std::int64_t row)
{
    remove(tables::kQueueText, row);
}

void QueueRows::remove(const platform::Table& table, std::int64_t row)
{
    try {
        database_.remove(table, row);
    } catch (const EngineError& error) {
        if (error.number() != number_of(DatabaseError::RowGone)) {
            throw;
        }
    }
}

QueueRows::Texts QueueRows::texts()
{
    Texts texts;
    for (const auto& row : database_.query(statements::kSelectQueueTexts)) {
        MessageText text(row["Message"].text());
        text.set_several_recipients();
        text.set_row(row.key());
        texts.emplace(row.key(), std::move(text));
    }
    return texts;
}

std::size_t QueueRows::count()
{
    return database_.query(statements::kSelectQueue).size();
}

std::vector<QueueEntry> QueueRows::load(const Texts& texts)
{
    std::vector<QueueEntry> entries;
    const auto rows = database_.query(statements::kSelectQueue);
    entries.reserve(rows.size());
    for (const auto& row : rows) {
        QueueEntry entry;
        entry.row = row.key();
        entry.sender = row["UserName_From"].text();
        entry.recipient = row["UserName_To"].text();
        entry.text = text_in(row, texts);
        const auto& msg_id = row["MsgID"];
        entry.MsgID = msg_id.is_null() ? 0 : msg_id.number();
        entry.received_time = row["ReceivedTime"].date();
        entry.expiration_time = row["ExpirationTime"].date();
        entry.receipt_requested = row["ReceiptRequested"].boolean();
        entry.progress.sent = row["Sent"].boolean();
        entry.progress.sent_time = row["SentTime"].date();
        entry.room = row["RoomName"].text();
        entries.push_back(std::move(entry));
    }
    return entries;
}

std::optional<QueueCounts> QueueRows::counts()
{
    const auto rows = database_.query(statements::kSelectQueueCount);
    if (rows.empty()) {
        return std::nullopt;
    }
    const auto row = rows.front();
    counts_row_ = row.key();
    return QueueCounts{count_in(row, "Accepted"), count_in(row, "Confirmed"), count_in(row, "Expired")};
}

void QueueRows::write(const QueueCounts& counts)
{
    const platform::RowChange change{
        {"Accepted", "Confirmed", "Expired"}, {counts.accepted, counts.confirmed, counts.expired}};
    if (counts_row_ != 0 || this->counts()) {
        database_.update(tables::kQueueCount, counts_row_, change);
    } else {
        counts_row_ = database_.insert(tables::kQueueCount, change);
    }
}

} // namespace qz::queue
