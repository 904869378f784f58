// One message that waits for its recipient.
#pragma once

#include "base/DateTime.h"
#include "queue/MessageText.h"

#include <cstdint>
#include <string>

namespace qz::queue {

/// What happens to a message while it waits.
struct Progress {
    bool sent = false;
    bool delivered = false;
    bool expired = false;
    int resends = 0; // without an answer, since it was last sent for the first time
    DateTime sent_time{};
    DateTime last_attempt{}; // the empty time until the first
    DateTime delivered_time{};
    DateTime resend_time{}; // of a sent one: after which it is sent again
};

struct QueueEntry {
    std::int64_t number = 0; // a smaller number means an older entry; 0 while the entry is free
    std::string sender;
    std::string recipient;
    MessageText text;
    double MsgID = 0; // number that the sending client gave the message; a whole number below 2^53
    DateTime received_time;
    DateTime expiration_time;
    bool receipt_requested = false;
    bool ignore = false;
    bool automatic = false; // a recipient's automatic reply: its sender did not write it
    Progress progress{};
    std::string room{};           // of a message that was written to a room
    std::int64_t row = 0;         // its key in the table `queue`; 0 when it is not kept there
    std::int64_t message_row = 0; // its key in the table `messages`; 0 when it has to be looked for

    bool in_use() const { return number != 0; }
    bool to_room() const { return !room.empty(); }
};

} // namespace qz::queue
