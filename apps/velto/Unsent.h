// What was written and is not certainly with the server.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>

namespace velto {

struct UnsentMessage {
    std::string to;
    std::string text;
    std::optional<std::chrono::minutes> life;
};

/// A queue in the order of writing: those in front are on their way, the others wait for a connection.
class Unsent {
public:
    void add(UnsentMessage message) { messages_.push_back(std::move(message)); }
    /// The oldest one that waits; nothing when none does.
    const UnsentMessage* next() const
    {
        return on_their_way_ < messages_.size() ? &messages_[on_their_way_] : nullptr;
    }
    /// That one was handed to the connection.
    void handed_over() { ++on_their_way_; }
    /// That one can never be sent.
    void drop_next() { messages_.erase(messages_.begin() + static_cast<std::ptrdiff_t>(on_their_way_)); }
    /// The server has the oldest one.
    void accepted()
    {
        if (on_their_way_ > 0) {
            messages_.pop_front();
            --on_their_way_;
        }
    }
    /// What was on its way may be lost: it is sent again.
    void connection_lost() { on_their_way_ = 0; }
    bool empty() const { return messages_.empty(); }
    const std::deque<UnsentMessage>& messages() const { return messages_; }

private:
    std::deque<UnsentMessage> messages_;
    std::size_t on_their_way_ = 0;
};

} // namespace velto
