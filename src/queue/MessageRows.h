// The rows of the table `messages` that belong to the queue.
#pragma once

#include "base/DateTime.h"
#include "queue/QueueEntry.h"
#include "store/Database.h"

#include <cstdint>
#include <string>
#include <unordered_set>

namespace qz::queue {

/// What a confirmation found in the table.
struct ConfirmedRow {
    std::int32_t rows = 0; // that were looked for; only a single one is confirmed
    bool receipt_requested = false;
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
    /// Whether a message of this sender to this recipient with this MsgID was ever recorded.
    bool contains(const std::string& sender, const std::string& recipient, double msg_id);
    /// Writes an entry's state to its row, the newest of equal ones. An entry that knows its row has no
    /// equal.
    /// @throws EngineError also when there is no such row.
    void write_back(const QueueEntry& entry);
    /// Marks the row with the MsgID delivered, provided it is the only one.
    /// @param recipient  whose rows count, in any letter case; empty for everybody's.
    ConfirmedRow confirm(double msg_id, const std::string& recipient, DateTime now);
    /// What was saved until now is stored, or lost.
    void turn_ended() { saved_.clear(); }

private:
    bool write_known(const QueueEntry& entry);

    store::Database& database_;
    std::unordered_set<std::string> saved_; // in this turn: MsgID, recipient and sender
};

} // namespace qz::queue
