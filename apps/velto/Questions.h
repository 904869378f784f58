// Which answer belongs to which question.
#pragma once

#include "client/Incoming.h"

#include <deque>
#include <functional>
#include <utility>
#include <variant>

namespace velto {

/// The server answers in order, and sends nothing where it has nothing to tell. So an echo goes out behind
/// every question: what has not been answered when the echo comes back has no answer.
class Questions {
public:
    /// A question was sent whose answer is a T, and an echo behind it.
    /// @param done  called once, with nothing when there is no answer; never when the connection is lost
    /// before.
    template <typename T> void asked(std::function<void(const T*)> done)
    {
        using qz::client::Incoming;
        open_.push_back({[done](const Incoming* answer) {
            const auto* const expected = answer == nullptr ? nullptr : std::get_if<T>(answer);
            const bool fits = answer == nullptr || expected != nullptr;
            if (fits) {
                done(expected);
            }
            return fits;
        }});
    }
    /// @return true when it was the answer to the oldest question, or ends the wait for one.
    bool take(const qz::client::Incoming& incoming)
    {
        if (open_.empty()) {
            return false;
        }
        if (std::holds_alternative<qz::client::Echo>(incoming)) {
            const auto question = std::move(open_.front());
            open_.pop_front();
            if (!question.answered) {
                question.done(nullptr);
            }
            return true;
        }
        if (open_.front().answered) {
            return false;
        }
        if (std::holds_alternative<qz::client::CutOff>(incoming)) {
            open_.front().answered = true; // by something that cannot be shown
            return false;
        }
        // The answer is taken before it is told: being told may ask the next question.
        open_.front().answered = true;
        const auto done = open_.front().done;
        const bool fits = done(&incoming);
        if (!fits) {
            open_.front().answered = false;
        }
        return fits;
    }
    /// Nothing that was asked on this connection will be answered.
    void connection_lost() { open_.clear(); }
    bool empty() const { return open_.empty(); }

private:
    struct Question {
        std::function<bool(const qz::client::Incoming*)> done; // false when that was no answer
        bool answered = false;
    };

    std::deque<Question> open_; // oldest first
};

} // namespace velto
