// What really happened: every message that was sent, accepted, shown; and what must never be.
#pragma once

#include "base/DateTime.h"
#include "client/Incoming.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qz::torture {

class Truth {
public:
    /// The next message between two users.
    /// @return its text, which tells it from all others.
    std::string next_text(const std::string& from, const std::string& to, std::size_t length);
    /// The last text was not sent at all.
    void take_back();
    void sent(const std::string& text, client::MessageId id, bool may_expire);
    void accepted(client::MessageId id);
    void shown(const std::string& user, const client::Message& message);
    void fail(const std::string& what);

    std::int64_t messages() const { return static_cast<std::int64_t>(messages_.size()); }
    std::int64_t accepted_messages() const { return accepted_; }
    std::int64_t shown_messages() const { return shown_; }
    /// Messages that still have to be accepted, or to be shown because they do not expire.
    std::vector<std::string> missing() const;
    /// The first things that went wrong.
    const std::vector<std::string>& failures() const { return failures_; }

private:
    struct Sent {
        std::string text; // up to its number
        std::string from;
        std::string to;
        std::int64_t number = 0; // among those from the one to the other
        client::MessageId id = 0;
        bool may_expire = false;
        bool accepted = false;
        bool shown = false;
    };

    std::map<std::pair<std::string, std::string>, std::int64_t> last_sent_;  // by sender and recipient
    std::map<std::pair<std::string, std::string>, std::int64_t> last_shown_; // the same
    std::vector<Sent> messages_;
    std::unordered_map<client::MessageId, std::size_t> by_id_;
    std::unordered_map<std::string, std::size_t> by_text_;
    std::int64_t accepted_ = 0;
    std::int64_t shown_ = 0;
    std::vector<std::string> failures_;
};

} // namespace qz::torture
