// What was written and is not certainly with the server.
#pragma once

#include "client/Incoming.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <utility>

namespace velto {

struct UnsentMessage {
    std::string to;
    std::string text;
    std::optional<std::chrono::minutes> life;
    qz::client::MessageId id = 0; // 0 while the connection does not take it
};

/// A queue in the order of writing. Those in front were taken by the connection, which sends them until the
/// server has told that it has them; the others wait until the connection takes them.
class Unsent {
public:
    void add(UnsentMessage message) { messages_.push_back(std::move(message)); }
    /// The oldest one that waits; nothing when none does.
    const UnsentMessage* next() const { return taken_ < messages_.size() ? &messages_[taken_] : nullptr; }
    /// The connection has taken that one.
    void taken(qz::client::MessageId id) { messages_[taken_++].id = id; }
    /// That one can never be sent.
    void drop_next() { messages_.erase(messages_.begin() + static_cast<std::ptrdiff_t>(taken_)); }
    /// The server has that one.
    void settled(qz::client::MessageId id)
    {
        for (std::size_t i = 0; i < taken_; ++i) {
            if (messages_[i].id == id) {
                messages_.erase(messages_.begin() + static_cast<std::ptrdiff_t>(i));
                --taken_;
                return;
            }
        }
    }
    bool empty() const { return messages_.empty(); }
    const std::deque<UnsentMessage>& messages() const { return messages_; }

private:
    std::deque<UnsentMessage> messages_;
    std::size_t taken_ = 0;
};

} // namespace velto
