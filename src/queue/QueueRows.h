// The tables `queue`, `queuetext` and `queuecount`: the messages that wait, their texts, and what became of
// all others.
#pragma once

#include "queue/QueueEntry.h"
#include "store/Database.h"

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

namespace qz::queue {

/// What became of all messages that were ever kept: accepted = confirmed + expired + those that wait.
struct QueueCounts {
    std::int64_t accepted = 0;
    std::int64_t confirmed = 0;
    std::int64_t expired = 0;

    bool operator==(const QueueCounts&) const = default;
};

/// Every operation throws EngineError when the database fails.
class QueueRows {
public:
    explicit QueueRows(store::Database& database) : database_(database) { }

    /// A text that has a row of its own is not stored again.
    /// @return key of the new row; later rows have greater ones.
    std::int64_t add(const QueueEntry& entry);
    /// Whether the database has the entry's row.
    bool has(const QueueEntry& entry);
    void mark_sent(const QueueEntry& entry);
    /// A row that is gone already is no error.
    void remove(std::int64_t row);
    /// The texts that have rows of their own, by their keys.
    using Texts = std::unordered_map<std::int64_t, MessageText>;
    Texts texts();
    /// All rows, the oldest first. Those that refer to one of the texts share it.
    std::vector<QueueEntry> load(const Texts& texts);
    std::size_t count();

    /// Stores a text by itself.
    /// @return its key.
    std::int64_t add_text(const MessageText& text);
    void remove_text(std::int64_t row);

    /// Nothing before anything was counted.
    std::optional<QueueCounts> counts();
    void write(const QueueCounts& counts);
    /// The turn was lost, and with it perhaps the row of the counts.
    void turn_lost() { counts_row_ = 0; }

private:
    void remove(const platform::Table& table, std::int64_t row);

    store::Database& database_;
    // Kept for their memory: they are filled anew for every message.
    platform::RowChange new_row_{{"UserName_From", "UserName_To", "MsgID", "Message", "RoomName",
                                     "ReceiptRequested", "ReceivedTime", "ExpirationTime"},
        std::vector<platform::Value>(8)};
    /// The same for a message whose text has a row of its own.
    platform::RowChange new_reference_{{"UserName_From", "UserName_To", "MsgID", "IDQueueText", "RoomName",
                                           "ReceiptRequested", "ReceivedTime", "ExpirationTime"},
        std::vector<platform::Value>(8)};
    platform::RowChange sent_{{"Sent", "SentTime"}, {true, DateTime{}}};
    std::int64_t counts_row_ = 0; // key of the one row of `queuecount`; 0 when it is not known
};

} // namespace qz::queue
