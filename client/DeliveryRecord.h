// What the client owes the server for the messages that have arrived: each is shown once and confirmed until
// the server has certainly heard of it.
#pragma once

#include "client/Incoming.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_set>

namespace qz::client {

/// The latest messages, to know one that comes again.
class SeenMessages {
public:
    static constexpr std::size_t kMost = 1024;

    /// @return true when this sender's message with this number was not seen before.
    bool is_new(const Message& message);
    std::size_t size() const { return order_.size(); }

private:
    std::unordered_set<std::string> known_;
    std::deque<std::string> order_; // oldest first
};

/// Confirmations that the server may not have yet. Nothing on the wire answers one; but the server works in
/// order, so its answer to anything that was sent later tells that they have arrived.
class Confirmations {
public:
    /// The oldest give way to the newest.
    static constexpr std::size_t kMost = 4096;

    void add(MessageId id);
    /// The oldest one that was not sent on this connection.
    std::optional<MessageId> next_to_send() const;
    void mark_sent();
    /// Counts what was ever marked as sent, for `acknowledge`.
    std::uint64_t mark() const { return next_; }
    bool any_unacknowledged() const { return next_ > first_; }
    /// Everything sent before the mark has arrived.
    void acknowledge(std::uint64_t mark);
    /// All that was not acknowledged is to be sent again.
    void connection_lost() { next_ = first_; }
    void clear();
    std::size_t size() const { return ids_.size(); }

private:
    std::deque<MessageId> ids_;
    std::uint64_t first_ = 0; // running number of the first one in ids_
    std::uint64_t next_ = 0;  // running number of the first one that was not sent
};

} // namespace qz::client
