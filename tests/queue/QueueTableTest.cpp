#include "queue/QueueTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

using qz::DateTime;
using qz::queue::QueueEntry;
using qz::queue::QueueTable;

namespace {

const DateTime kStart = DateTime::parse("2026-03-02 09:00:00").value();
constexpr std::int64_t kPause = 10;
constexpr std::int64_t kLongest = 20; // until a message is sent again

/// What the walks of the interface would find: every question is a scan over all entries.
class ScannedTable {
public:
    explicit ScannedTable(const QueueTable& table) : table_(table) { }

    bool is_message_before(const QueueEntry& entry) const
    {
        return first([&](const QueueEntry& other) {
            return !other.progress.sent && other.recipient == entry.recipient && other.number < entry.number;
        }).has_value();
    }
    std::optional<QueueTable::Place> due(QueueTable::Place from, DateTime now) const
    {
        return first(
            [&](const QueueEntry& entry) {
                const bool rested = entry.progress.last_attempt.empty()
                    || qz::seconds_between(entry.progress.last_attempt, now) > kPause;
                return !entry.progress.sent && rested && !is_message_before(entry);
            },
            from);
    }
    std::optional<QueueTable::Place> finished() const
    {
        return first(
            [](const QueueEntry& entry) { return entry.progress.delivered || entry.progress.expired; });
    }
    bool any_to_resend(DateTime now) const
    {
        return first([&](const QueueEntry& entry) {
            const auto ahead = qz::seconds_between(now, entry.progress.resend_time);
            return entry.progress.sent && !entry.progress.delivered && !entry.progress.expired
                && (ahead < 0 || ahead > kLongest);
        }).has_value();
    }
    std::optional<QueueTable::Place> undelivered(double msg_id) const
    {
        return first(
            [&](const QueueEntry& entry) { return !entry.progress.delivered && entry.MsgID == msg_id; });
    }
    template <typename Condition> std::size_t count(Condition&& condition) const
    {
        std::size_t number = 0;
        for (const auto place : table_.in_use()) {
            number += condition(table_.at(place)) ? 1U : 0U;
        }
        return number;
    }
    /// Bytes of the texts that meet a condition, each counted once.
    template <typename Condition> std::size_t bytes(Condition&& condition) const
    {
        std::set<const std::string*> texts;
        count([&](const QueueEntry& entry) {
            return condition(entry) && texts.insert(&entry.text.str()).second;
        });
        return std::accumulate(texts.begin(), texts.end(), std::size_t{0},
            [](std::size_t sum, const std::string* text) { return sum + text->size(); });
    }
    bool any_to_expire(DateTime now) const
    {
        return first([&](const QueueEntry& entry) {
            return !entry.progress.delivered && !entry.progress.expired && entry.expiration_time < now;
        }).has_value();
    }

private:
    template <typename Condition>
    std::optional<QueueTable::Place> first(Condition&& condition, QueueTable::Place from = 0) const
    {
        for (const auto place : table_.in_use()) {
            if (place >= from && condition(table_.at(place))) {
                return place;
            }
        }
        return std::nullopt;
    }

    const QueueTable& table_;
};

QueueEntry message(const std::string& to, double msg_id, DateTime expiration = kStart.plus_seconds(900))
{
    QueueEntry entry;
    entry.sender = "ada";
    entry.recipient = to;
    entry.MsgID = msg_id;
    entry.expiration_time = expiration;
    return entry;
}

} // namespace

TEST(QueueTable, AnswersAsScansWould)
{
    const auto seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&](std::size_t limit) {
        return random() % limit;
    };

    QueueTable table;
    std::array<qz::queue::MessageText, 3> room_texts; // of each sender
    DateTime now = kStart;
    for (int step = 0; step < 4000; ++step) {
        const auto used = table.in_use();
        const auto any = used.empty() ? QueueTable::Place{0} : used[below(used.size())];
        const auto what = used.empty() ? 0 : below(13);
        const auto resend = now.plus_seconds(static_cast<std::int64_t>(below(30)));
        const bool unconfirmed = !used.empty() && table.at(any).progress.sent
            && !table.at(any).progress.delivered && !table.at(any).progress.expired;
        if (what <= 2 && used.size() < 200) {
            const auto expiration = now.plus_seconds(static_cast<std::int64_t>(below(200)));
            auto entry =
                message("user" + std::to_string(below(6)), static_cast<double>(below(9)), expiration);
            const auto sender = below(3);
            entry.sender = "user" + std::to_string(sender);
            entry.room = below(3) == 0 ? "attic" : "";
            entry.automatic = !entry.to_room() && below(4) == 0;
            entry.text = std::string(below(50), 'x');
            if (below(5) == 0) {
                room_texts.at(sender) = std::string(below(50), 'x');
            }
            if (entry.to_room()) {
                entry.text = room_texts.at(sender);
            }
            table.put(entry);
        } else if (what == 3) {
            table.free(any);
        } else if (what == 4) {
            table.set_attempted(any, now);
        } else if (what == 5 && !table.at(any).progress.sent) {
            table.set_sent(any, now, now.plus_seconds(-86400), resend);
        } else if (what == 6) {
            table.set_expired(any, below(2) == 0);
        } else if (what == 7 && !table.at(any).progress.delivered) {
            table.set_delivered(any, now);
        } else if (what == 8) {
            now = now.plus_seconds(static_cast<std::int64_t>(below(8)));
        } else if (what == 9 && unconfirmed) {
            table.set_resent(any, 1, resend);
        } else if (what == 10 && unconfirmed) {
            table.set_unsent(any, now);
        } else if (what == 11) {
            if (below(2) == 0) {
                table.set_unsent(table.at(any).recipient);
            } else { // a turn that was lost
                const auto entry = table.at(any);
                table.free(any);
                table.restore(entry);
            }
        } else if (what == 12) {
            for (const auto place : below(100) == 0 ? used : std::vector<QueueTable::Place>{}) {
                table.free(place);
            }
            table.shrink();
        }

        const ScannedTable scan(table);
        table.make_due(now, kPause);
        const auto from = below(8);
        ASSERT_EQ(table.next_due(from), scan.due(from, now)) << "step " << step;
        ASSERT_EQ(table.next_finished(0), scan.finished()) << "step " << step;
        ASSERT_EQ(table.next_to_resend(now, kLongest).has_value(), scan.any_to_resend(now))
            << "step " << step;
        ASSERT_EQ(table.next_to_expire(now).has_value(), scan.any_to_expire(now)) << "step " << step;
        const auto msg_id = static_cast<double>(below(9));
        ASSERT_EQ(table.undelivered(msg_id, ""), scan.undelivered(msg_id)) << "step " << step;
        ASSERT_EQ(table.count_to("user1"), scan.count([](const QueueEntry& entry) {
            return entry.recipient == "user1" && !entry.to_room();
        })) << "step "
            << step;
        ASSERT_EQ(table.bytes_to("user1"), scan.bytes([](const QueueEntry& entry) {
            return entry.recipient == "user1" && !entry.to_room();
        })) << "step "
            << step;
        ASSERT_EQ(table.bytes_from("user1"), scan.bytes([](const QueueEntry& entry) {
            return entry.sender == "user1" && !entry.automatic;
        })) << "step "
            << step;
        ASSERT_EQ(table.count_between("user1", "user2"), scan.count([](const QueueEntry& entry) {
            return entry.sender == "user1" && entry.recipient == "user2" && !entry.automatic
                && !entry.to_room();
        })) << "step "
            << step;
        for (const bool to_room : {false, true}) {
            ASSERT_EQ(table.count_from("user1", to_room), scan.count([&](const QueueEntry& entry) {
                return entry.sender == "user1" && entry.to_room() == to_room && !entry.automatic;
            })) << "step "
                << step;
        }
        for (const auto place : table.in_use()) {
            const auto& entry = table.at(place);
            ASSERT_EQ(table.is_message_before(entry.number, entry.recipient), scan.is_message_before(entry));
            ASSERT_EQ(table.numbered(entry.number), place);
        }
    }
}

TEST(QueueTable, AFreePlaceIsUsedAgainAndANumberNever)
{
    QueueTable table;
    const auto first = table.put(message("ben", 1));
    const auto number = table.at(first).number;
    table.put(message("ben", 2));
    table.free(first);
    EXPECT_EQ(table.put(message("ben", 3)), first);
    EXPECT_GT(table.at(first).number, number + 1) << "the younger message stands in the older place";
    table.clear();
    EXPECT_EQ(table.count_in_use(), 0U);
    EXPECT_GT(table.at(table.put(message("ben", 4))).number, number + 2);
}

TEST(QueueTable, AClockThatIsSetBackHoldsNothingUp)
{
    QueueTable table;
    const auto place = table.put(message("ben", 1));
    table.set_attempted(place, kStart);
    table.make_due(kStart, kPause);
    EXPECT_EQ(table.next_due(0), std::nullopt);
    table.make_due(kStart.plus_seconds(-3600), kPause);
    EXPECT_EQ(table.next_due(0), place) << "its last attempt lies in the future";
}
