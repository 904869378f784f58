// What the client owes: each message that has arrived is shown once and confirmed until the server has
// certainly heard of it; each message of the user's own is sent until the server has certainly accepted or
// refused it.
#pragma once

#include "client/Incoming.h"
#include "client/Requests.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>

namespace qz::client {

/// A message of the user's own, with the number under which it is sent, each time.
struct OwnMessage {
    MessageId id = 0;
    Request request;
};

/// The latest messages, to know one that comes again. They live as long as the program: one that ends between
/// the arrival of a message and the server's hearing of its confirmation gets that message once more at its
/// next logon.
class SeenMessages {
public:
    /// Not fewer than the confirmations that are kept: what the server may send again is known again.
    static constexpr std::size_t kMost = 16'384;

    /// @return true when this sender's message with this number was not seen before.
    bool is_new(const Message& message);
    std::size_t size() const { return order_.size(); }

private:
    std::unordered_set<std::string> known_;
    std::deque<std::string> order_; // oldest first
};

/// What the server may not have yet, in the order in which it is sent. Nothing on the wire answers these
/// items; but the server works in order, so its answer to anything that was sent later tells that they have
/// arrived.
template <typename Item> class Owed {
public:
    static constexpr std::size_t kMost = 16'384;

    /// Not to be called while it is full.
    void add(Item item) { items_.push_back(std::move(item)); }
    /// The oldest one that was not sent on this connection; valid until the next call that is not const.
    const Item* next_to_send() const
    {
        const auto position = next_ - first_;
        return position < items_.size() ? &items_[position] : nullptr;
    }
    void mark_sent() { ++next_; }
    /// Counts what was ever marked as sent, for `take_acknowledged`.
    std::uint64_t mark() const { return next_; }
    bool any_unacknowledged() const { return next_ > first_; }
    /// Everything sent before the mark has arrived.
    /// @return the oldest one of which that is not known yet; it is owed no more. Nothing when there is none.
    std::optional<Item> take_acknowledged(std::uint64_t mark)
    {
        return first_ < mark && !items_.empty() ? std::optional(take_oldest()) : std::nullopt;
    }
    /// Takes the oldest one out, whatever is known of it. There has to be one.
    Item take_oldest()
    {
        Item oldest = std::move(items_.front());
        items_.pop_front();
        ++first_;
        next_ = (std::max)(next_, first_);
        return oldest;
    }
    /// All that was not acknowledged is to be sent again.
    void connection_lost() { next_ = first_; }
    void clear()
    {
        first_ += items_.size();
        next_ = first_;
        items_.clear();
    }
    std::size_t size() const { return items_.size(); }
    bool is_full() const { return size() >= kMost; }

private:
    std::deque<Item> items_;
    std::uint64_t first_ = 0; // running number of the first one in items_
    std::uint64_t next_ = 0;  // running number of the first one that was not sent
};

/// Confirmations of messages.
using Confirmations = Owed<MessageId>;
/// The user's own messages, until the server has accepted or refused them.
using OwnMessages = Owed<OwnMessage>;

} // namespace qz::client
