// What is measured. Every scenario works against whatever listens on the port, server or bare relay.
#pragma once

#include "Crowd.h"
#include "Process.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velto::bench {

/// Cost of so many things done.
struct Cost {
    double count = 0;
    Seconds wall{0};
    Seconds measured{0};  // processor time of the measured program
    Seconds generator{0}; // and of this one
};

/// Seconds at which half, 99 of 100 and all were at the latest.
struct Latency {
    double median = 0;
    double percentile_99 = 0;
    double worst = 0;
};

/// Accounts that log on to a server on which nobody of them is.
Cost log_on_storm(const Process& measured, Crowd& crowd, std::size_t first, std::size_t count);

/// Messages between clients 0 and 1, 2 and 3, and so on: each is sent, delivered, confirmed by its recipient,
/// and its sender gets the receipt; then the sender writes the next one.
/// @param window  so many messages of each pair are on their way.
Cost confirmed_messages(
    const Process& measured, Crowd& crowd, std::size_t pairs, std::size_t window, Seconds time);

/// Time from sending to delivery of one pair that writes one message at a time.
Latency latency_of_one_pair(Crowd& crowd, std::size_t messages);

/// Time from the moment at which a message should have been sent to its delivery, at a fixed rate: a
/// generator or server that falls behind makes all later messages late, and they count.
Latency latency_at_rate(Crowd& crowd, std::size_t pairs, double rate, Seconds time);

/// The first clients become members of a room.
void join_room(Crowd& crowd, std::size_t members);

/// One member writes to the room; each member confirms each message. Counts deliveries.
Cost room(const Process& measured, Crowd& crowd, std::size_t members, std::size_t messages);

/// Messages for accounts that are off line, counted when the server has taken them.
/// @param recipients  accounts from this number on, as many as there are clients.
Cost store_for_later(const Process& measured, Crowd& crowd, std::size_t first_recipient,
    std::size_t recipients, std::size_t count);

/// Logs the recipients on and counts what then comes.
Cost drain(const Process& measured, Crowd& crowd, std::size_t first_recipient, std::size_t recipients,
    std::size_t count);

/// Processor time of the measured program while nobody wants anything.
Cost idle(const Process& measured, Seconds time);

} // namespace velto::bench
