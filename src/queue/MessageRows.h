// The rows of the table `messages` that belong to the queue.
#pragma once

#include "base/DateTime.h"
#include "queue/NumberFilter.h"
#include "queue/QueueEntry.h"
#include "store/Database.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace qz::queue {

/// What a confirmation found in the table.
struct ConfirmedRow {
    std::int32_t rows = 0; // that were looked for; only a single one is confirmed
    bool receipt_requested = false;
    bool was_expired = false; // it had not been confirmed before, and the confirmation comes too late
    std::string sender{};
    std::string recipient{};
};

/// Every operation throws EngineError when the database fails.
class MessageRows {
public:
    explicit MessageRows(store::Database& database) : database_(database) { }

    /// SaveMessage: adds a row with sender, recipient and MsgID.
    /// @return the row's key; 0 when it is not known yet.
    std::int64_t save(const QueueEntry& entry);
    /// Whether a message of this sender to this recipient with this MsgID was ever recorded. The database is
    /// asked only when the number was used before, or as long as not all numbers are read.
    bool contains(const std::string& sender, const std::string& recipient, double msg_id);
    /// Writes an entry's state to its row, the newest of equal ones. An entry that knows its row has no
    /// equal.
    /// @throws EngineError also when there is no such row.
    void write_back(const QueueEntry& entry);
    /// Marks the row with the MsgID delivered, provided it is the only one.
    /// @param recipient  whose rows count, in any letter case; empty for everybody's.
    ConfirmedRow confirm(double msg_id, const std::string& recipient, DateTime now);
    /// Reads some more of the numbers that were used before this engine ran.
    /// @param count  how many rows, about.
    void read_numbers(std::int64_t count);
    bool all_numbers_read() const { return read_until_ && *read_until_ >= last_before_; }
    /// Another database may be connected: numbers are read anew.
    void forget();
    /// What was saved until now is stored, or lost.
    void turn_ended() { saved_.clear(); }

private:
    void set_state(const QueueEntry& entry);
    bool write_known(std::int64_t row);

    store::Database& database_;
    NumberFilter numbers_;
    std::int64_t last_before_ = 0;           // key of the last row that was there before
    std::optional<std::int64_t> read_until_; // key up to which numbers are read; none: not begun
    std::unordered_set<std::size_t> saved_;  // in this turn: hashes of MsgID, recipient and sender
    /// The last number that was new to the filter: only what was saved since has it. A message to a room is
    /// saved for one member after the other.
    std::optional<double> new_number_;
    std::unordered_set<std::size_t> saved_with_it_; // hashes
    // Kept for their memory: they are filled anew for every message.
    platform::RowChange new_row_{{"UserName_From", "UserName_To", "MsgID"}, std::vector<platform::Value>(3)};
    platform::RowChange state_{{"ReceiptRequested", "Sent", "SentTime", "ReceivedTime", "ExpirationTime",
                                   "Delivered", "DeliveredTime", "Ignore"},
        std::vector<platform::Value>(8)};
};

} // namespace qz::queue
