#include "queue/KeptQueue.h"

#include "base/Guarded.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace qz::queue {

KeptQueue::KeptQueue(store::Database& database, Journal& journal)
    : database_(database), journal_(journal), rows_(database)
{
}

std::vector<QueueEntry> KeptQueue::load()
{
    const auto texts = rows_.texts();
    auto entries = rows_.load(texts);
    check(static_cast<std::int64_t>(entries.size()));
    for (const auto& [row, text] : texts) {
        if (!text.has_copies()) { // another program has removed the rows that referred to it
            rows_.remove_text(row);
        }
    }
    return entries;
}

void KeptQueue::check(std::int64_t waiting)
{
    const auto known = rows_.counts();
    counts_ = known.value_or(QueueCounts{.accepted = waiting});
    stored_counts_ = counts_;
    counts_known_ = true;
    if (!known) {
        rows_.write(counts_);
    } else if (counts_.accepted != counts_.confirmed + counts_.expired + waiting) {
        journal_.log_own("The counts of the queue do not agree: " + std::to_string(counts_.accepted)
            + " messages were accepted, " + std::to_string(counts_.confirmed) + " confirmed, "
            + std::to_string(counts_.expired) + " have expired, " + std::to_string(waiting) + " wait");
    }
}

void KeptQueue::add(QueueEntry& entry)
{
    database_.require_whole_turn();
    if (!counts_known_) { // switched on while the engine runs
        check(static_cast<std::int64_t>(rows_.count()));
    }
    if (entry.text.has_several_recipients() && entry.text.row() == 0) {
        keep_text(entry.text);
    }
    entry.row = rows_.add(entry);
    ++rows_without_entry_;
}

void KeptQueue::keep_text(const MessageText& text)
{
    text.set_row(rows_.add_text(text));
    text_steps_.push_back({text, 0});
}

std::optional<QueueEntry> KeptQueue::find_lost(
    const std::string& sender, const std::string& recipient, double msg_id)
{
    const auto found = std::find_if(lost_.begin(), lost_.end(), [&](const QueueEntry& entry) {
        return entry.MsgID == msg_id && entry.sender == sender && entry.recipient == recipient;
    });
    if (found == lost_.end()) {
        return std::nullopt;
    }
    database_.require_whole_turn();
    if (!rows_.has(*found)) {
        return std::nullopt;
    }
    auto entry = std::move(*found);
    lost_.erase(found);
    entry.progress = {}; // whatever was sent in that turn did not leave
    ++rows_without_entry_;
    return entry;
}

void KeptQueue::entered(const QueueEntry& entry)
{
    if (entry.row != 0) {
        steps_.push_back({Step::Kind::Entered, entry.number});
        ++counts_.accepted;
        --rows_without_entry_;
    }
}

void KeptQueue::changing(const QueueEntry& entry)
{
    if (entry.row != 0) {
        database_.require_whole_turn();
        steps_.push_back({Step::Kind::Changed, entry.number, entry.progress});
    }
}

void KeptQueue::sent(const QueueEntry& entry)
{
    if (entry.row != 0) {
        rows_.mark_sent(entry);
    }
}

void KeptQueue::leaving(const QueueEntry& entry)
{
    if (entry.row == 0) {
        return;
    }
    database_.require_whole_turn();
    rows_.remove(entry.row);
    const bool expired = entry.progress.expired && !entry.progress.delivered;
    ++(expired ? counts_.expired : counts_.confirmed);
}

void KeptQueue::left(QueueEntry entry)
{
    if (entry.row != 0) {
        steps_.push_back({Step::Kind::Left, entry.number});
        if (entry.text.row() != 0 && entry.text.entries() == 0) {
            left_texts_.push_back(entry.text);
        }
        left_.push_back(std::move(entry));
    }
}

void KeptQueue::confirmed_late()
{
    if (counts_.expired > 0) {
        --counts_.expired;
        ++counts_.confirmed;
    }
}

void KeptQueue::turn_ending()
{
    if (std::exchange(rows_without_entry_, 0) != 0) {
        database_.fail_turn(); // an automatic reply failed behind its message, which was refused for it
    }
    guarded(journal_, "QueueText", no_address, [&] { remove_unused_texts(); });
    if (counts_ != stored_counts_) {
        guarded(journal_, "QueueCount", no_address, [&] { rows_.write(counts_); });
    }
}

void KeptQueue::remove_unused_texts()
{
    for (const auto& text : left_texts_) {
        if (const auto row = text.row(); row != 0 && text.entries() == 0) {
            rows_.remove_text(row);
            text_steps_.push_back({text, row});
            text.set_row(0);
        }
    }
    left_texts_.clear();
}

void KeptQueue::turn_stored()
{
    forget_steps();
    stored_counts_ = counts_;
}

void KeptQueue::turn_lost(QueueTable& table)
{
    for (; !steps_.empty(); steps_.pop_back()) {
        take_back(steps_.back(), table);
    }
    for (; !text_steps_.empty(); text_steps_.pop_back()) {
        text_steps_.back().text.set_row(text_steps_.back().row_before);
    }
    left_texts_.clear();
    counts_ = stored_counts_;
    rows_.turn_lost();
}

void KeptQueue::take_back(const Step& step, QueueTable& table)
{
    if (step.kind == Step::Kind::Left) {
        table.restore(std::move(left_.back()));
        left_.pop_back();
    } else if (const auto place = table.numbered(step.number)) {
        if (step.kind == Step::Kind::Changed) {
            table.set_progress(*place, step.before);
        } else {
            constexpr std::size_t kMostLost = 1000;
            lost_.push_back(table.free(*place));
            if (lost_.size() > kMostLost) {
                lost_.pop_front();
            }
        }
    }
}

void KeptQueue::forget()
{
    forget_steps();
    left_texts_.clear();
    lost_.clear();
    counts_known_ = false;
}

void KeptQueue::forget_steps()
{
    constexpr std::size_t kMany = 10'000;
    if (left_.capacity() > kMany) {
        left_ = {};
    }
    if (steps_.capacity() > kMany) {
        steps_ = {};
    }
    left_.clear();
    steps_.clear();
    text_steps_.clear();
}

} // namespace qz::queue
