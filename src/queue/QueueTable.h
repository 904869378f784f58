// The entries of the message queue, with the indexes that keep every walk as short as what it has to do.
#pragma once

#include "base/DateTime.h"
#include "queue/PlaceArray.h"
#include "queue/QueueEntry.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qz::queue {

/// An array of entries: a free one is used again by the next put. Places are positions in the array; "in
/// array order" means ascending places.
class QueueTable {
public:
    using Place = std::size_t;

    /// Puts a message in. Its number is drawn here.
    Place put(QueueEntry entry);
    /// Puts an entry that was freed back in, under its own number.
    Place restore(QueueEntry entry);
    /// Frees an entry: all its fields are reset.
    /// @return what it was.
    QueueEntry free(Place place);
    void clear();

    const QueueEntry& at(Place place) const { return slots_[place].entry; }
    /// Gives memory back that is not used any more. Off the way of a message: it may look at a good part of
    /// the table.
    void shrink();
    std::size_t count_in_use() const { return place_of_.size(); }
    /// All entries in use, in array order.
    std::vector<Place> in_use() const;
    std::optional<Place> numbered(std::int64_t number) const;
    /// First entry with the MsgID that is not delivered yet.
    /// @param recipient  whose entry it must be, in any letter case; empty for anybody's.
    std::optional<Place> undelivered(double msg_id, const std::string& recipient) const;
    /// True when an entry is neither delivered nor freed and has this sender, recipient and MsgID.
    bool holds(const std::string& sender, const std::string& recipient, double msg_id) const;

    /// Entries in use that a sender wrote, automatic replies not counted: those to users, or those to rooms,
    /// one for each member.
    std::size_t count_from(const std::string& sender, bool to_room) const;
    /// Entries in use for a recipient, but for those from rooms.
    std::size_t count_to(const std::string& recipient) const;
    /// Those of one sender for one recipient: neither automatic replies nor from rooms.
    std::size_t count_between(const std::string& sender, const std::string& recipient) const;
    /// Bytes of the texts of the same entries. A text to a room counts once for its sender.
    std::size_t bytes_from(const std::string& sender) const;
    std::size_t bytes_to(const std::string& recipient) const;

    /// True when an entry in use for the same recipient is older and not sent yet.
    bool is_message_before(std::int64_t number, const std::string& recipient) const;
    /// Makes entries due whose last attempt lies more than `pause` seconds before now. One that lies in the
    /// future, because somebody set the clock back, is due too.
    void make_due(DateTime now, std::int64_t pause);
    /// The first entry at or after `from` that is not sent, is the oldest of its recipient, and is due: never
    /// tried, or made due since its last attempt.
    std::optional<Place> next_due(Place from) const;
    /// An entry, neither delivered nor marked expired, whose expiration lies before now; the longest expired
    /// first.
    std::optional<Place> next_to_expire(DateTime now) const;
    /// The first entry at or after `from` that is delivered or expired.
    std::optional<Place> next_finished(Place from) const;
    /// An entry that is sent, neither delivered nor expired, and whose time to be sent again lies before now,
    /// the longest due first; or one whose time lies more than `longest` seconds ahead, because somebody set
    /// the clock back.
    std::optional<Place> next_to_resend(DateTime now, std::int64_t longest) const;

    void set_attempted(Place place, DateTime now);
    /// @param resend  the time after which it is to be sent again, unless it is confirmed.
    void set_sent(Place place, DateTime sent, DateTime last_attempt, DateTime resend);
    /// Sent again, or not: from now on it waits for the next time.
    void set_resent(Place place, int resends, DateTime resend);
    /// It waits to be sent, as if it had been tried just now.
    void set_unsent(Place place, DateTime now);
    /// The recipient has another connection, or none: counted as long as it has entries.
    void count_connection(const std::string& recipient);
    std::int64_t connections_of_recipient(Place place) const { return slots_[place].recipient->connections; }
    /// All that a recipient has been sent and has not confirmed waits to be sent, and none of its entries
    /// counts as tried before: the oldest entry for the recipient is due.
    void set_unsent(const std::string& recipient);
    void set_expired(Place place, bool expired);
    void set_delivered(Place place, DateTime now);
    /// When the log was last told that the entry's recipient is off line; the empty time when there is
    /// nothing to remember. Forgotten with the recipient's last entry.
    DateTime offline_logged(Place place) const { return slots_[place].recipient->offline_logged; }
    void set_offline_logged(Place place, DateTime time) { slots_[place].recipient->offline_logged = time; }
    void set_progress(Place place, const Progress& progress);

private:
    using Numbers = std::set<std::int64_t>;
    using Times = std::multimap<DateTime, Place>;
    /// A name that entries in use are for.
    struct Recipient {
        std::size_t entries = 0;
        std::int64_t not_from_rooms = 0; // of these
        std::int64_t bytes = 0;          // of their texts
        Numbers line;                    // what is not sent
        Numbers unconfirmed;             // what stands in to_resend_
        DateTime offline_logged{};
        std::int64_t connections = 0; // counted since its first entry
    };
    /// A name that wrote entries in use.
    struct Sender {
        std::int64_t to_users = 0;
        std::int64_t to_rooms = 0;
        std::int64_t bytes = 0; // of their texts
    };
    using Pair = std::pair<const Sender*, const Recipient*>;
    struct PairHash {
        std::size_t operator()(const Pair& pair) const
        {
            constexpr std::size_t kOdd = 0x9E3779B97F4A7C15;
            const std::hash<const void*> hash;
            return hash(pair.first) * kOdd + hash(pair.second);
        }
    };
    /// Where the oldest unsent entry of each recipient stands.
    enum class Schedule : std::uint8_t { None, Due, Tried };
    struct Slot {
        QueueEntry entry;
        Recipient* recipient = nullptr; // of an entry in use
        Sender* sender = nullptr;       // the same; none of an automatic reply
        std::size_t name_hash = 0;      // of the recipient, in any letter case
        Schedule schedule = Schedule::None;
        // Where it stands in the indexes by time; meaningful while it stands there.
        Times::iterator tried{};
        Times::iterator expiration{};
        Times::iterator resend{};
    };

    /// The indexes in which an entry stands: its progress alone decides.
    struct Standing {
        bool in_line = false;
        bool unconfirmed = false;
        bool undelivered = false;
        bool finished = false;
        bool expiring = false;
    };

    Place place(QueueEntry entry);
    template <typename Condition>
    std::optional<Place> find_undelivered(
        double msg_id, const std::string& recipient, Condition condition) const;
    const Recipient* find_recipient(const std::string& name) const;
    const Sender* find_sender(const std::string& name) const;
    std::optional<Place> head_of(const Recipient& recipient) const;
    void count(const Slot& slot, std::int64_t change);
    void count_pair(const Slot& slot, std::int64_t change);
    static Standing standing_of(const Progress& progress);
    void leave(Place place, const Standing& was, const Standing& is);
    void enter(Place place, const Standing& was, const Standing& is);
    void enter_line(Place place);
    void leave_line(Place place);
    void schedule(Place place);
    void unschedule(Place place);

    PlaceArray<Slot> slots_;
    std::int64_t last_number_ = 0;
    std::unordered_map<std::int64_t, Place> place_of_;
    std::unordered_map<std::string, Recipient> recipients_;
    std::unordered_map<std::string, Sender> senders_;
    std::unordered_map<Pair, std::int64_t, PairHash> pairs_; // numbers of entries between the two
    /// By MsgID, which the messages to a room share, one for each member: hash of the recipient, place.
    std::unordered_map<double, std::set<std::pair<std::size_t, Place>>> undelivered_;
    std::set<Place> due_;
    Times tried_;         // by last attempt
    Times by_expiration_; // neither delivered nor marked expired
    std::set<Place> finished_;
    Times to_resend_; // sent, neither delivered nor expired
};

} // namespace qz::queue
