// What the database keeps of the message queue while DurableQueue is on, so that nothing that was accepted is
// lost: the rows of the entries, the counts, and the way back to both when a turn could not be stored.
#pragma once

#include "base/Journal.h"
#include "queue/MessageRows.h"
#include "queue/QueueEntry.h"
#include "queue/QueueRows.h"
#include "queue/QueueTable.h"
#include "store/Database.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace qz::queue {

/// Entries without a row are none of its business. Every operation requires the turn to be stored as a whole,
/// and throws EngineError when the database fails.
class KeptQueue {
public:
    KeptQueue(store::Database& database, Journal& journal);

    /// Everything that waited when the engine last ran, the oldest first. Logs when the counts do not agree
    /// with it.
    std::vector<QueueEntry> load();

    /// This turn is to be stored as a whole or not at all.
    void require_whole_turn() { database_.require_whole_turn(); }
    /// Adds the entry's row and sets its key.
    void add(QueueEntry& entry);
    /// A message that was accepted in a turn that counts as lost, but was stored: nobody can know of a commit
    /// to which no answer came. It is to be entered again.
    std::optional<QueueEntry> find_lost(
        const std::string& sender, const std::string& recipient, double msg_id);
    /// A new entry has its place in the table.
    void entered(const QueueEntry& entry);
    /// To be called before an entry's progress changes.
    void changing(const QueueEntry& entry);
    void sent(const QueueEntry& entry);
    /// The entry is about to be freed: its row goes, and it is counted. One that leaves because it was sent
    /// counts as confirmed: nothing more is waited for.
    void leaving(const QueueEntry& entry);
    /// A message was confirmed that had expired and left.
    void confirmed_late();
    /// It was freed, whatever became of its row. The row of its text goes at the end of the turn, if no entry
    /// has the text by then.
    void left(QueueEntry entry);

    /// Writes the counts, if they have changed.
    void turn_ending();
    void turn_stored();
    /// Makes the table what it was before this turn.
    void turn_lost(QueueTable& table);
    void forget();
    /// Of this turn, stored or not.
    const QueueCounts& counts() const { return counts_; }

private:
    /// What happened to an entry.
    struct Step {
        enum class Kind : std::uint8_t { Entered, Changed, Left };
        Kind kind;
        std::int64_t number;
        Progress before{}; // of one that changed
    };

    /// A text's row came or went.
    struct TextStep {
        MessageText text;
        std::int64_t row_before;
    };

    void check(std::int64_t waiting);
    void keep_text(const MessageText& text);
    void remove_unused_texts();
    void forget_steps();
    void take_back(const Step& step, QueueTable& table);

    store::Database& database_;
    Journal& journal_;
    QueueRows rows_;
    QueueCounts counts_;
    QueueCounts stored_counts_;
    bool counts_known_ = false;
    int rows_without_entry_ = 0;   // added, and not entered yet
    std::vector<Step> steps_;      // of this turn, in their order
    std::vector<QueueEntry> left_; // in this turn, in their order
    std::vector<TextStep> text_steps_;
    std::vector<MessageText> left_texts_; // whose last entry left; one may have entered since
    std::deque<QueueEntry> lost_;         // entered in turns that count as lost, the latest of them
};

} // namespace qz::queue
