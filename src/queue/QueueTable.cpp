#include "queue/QueueTable.h"

#include "base/Text.h"

#include <algorithm>

namespace qz::queue {

namespace {

std::optional<QueueTable::Place> first_from(const std::set<QueueTable::Place>& places, QueueTable::Place from)
{
    const auto found = places.lower_bound(from);
    return found == places.end() ? std::nullopt : std::optional(*found);
}

std::size_t count_in(const std::unordered_map<std::string, std::int64_t>& counts, const std::string& name)
{
    const auto found = counts.find(name);
    return found == counts.end() ? 0 : static_cast<std::size_t>(found->second);
}

template <typename Index, typename Key, typename Member>
void remove(Index& index, const Key& key, const Member& member)
{
    const auto found = index.find(key);
    if (found == index.end()) {
        return;
    }
    found->second.erase(member);
    if (found->second.empty()) {
        index.erase(found);
    }
}

} // namespace

QueueTable::Place QueueTable::put(QueueEntry entry)
{
    if (free_.empty()) {
        free_.push(entries_.size());
        entries_.emplace_back();
    }
    const auto place = free_.top();
    free_.pop();
    entry.number = ++last_number_;
    auto& placed = entries_[place] = std::move(entry);
    place_of_.emplace(placed.number, place);
    by_recipient_[placed.recipient].insert(placed.number);
    count(placed, 1);
    undelivered_[placed.MsgID].insert(place);
    by_expiration_.emplace(placed.expiration_time, place);
    if (head_of(placed.recipient) == place) {
        schedule(place);
    }
    return place;
}

void QueueTable::free(Place place)
{
    auto& entry = entries_[place];
    unschedule(place);
    place_of_.erase(entry.number);
    remove(by_recipient_, entry.recipient, entry.number);
    count(entry, -1);
    remove(undelivered_, entry.MsgID, place);
    by_expiration_.erase({entry.expiration_time, place});
    finished_.erase(place);
    unconfirmed_.erase(place);
    const auto recipient = std::move(entry.recipient);
    entry = {};
    free_.push(place);
    if (const auto head = head_of(recipient)) {
        schedule(*head);
    }
}

void QueueTable::clear()
{
    const auto last_number = last_number_; // a number is never drawn twice
    *this = {};
    last_number_ = last_number;
}

std::vector<QueueTable::Place> QueueTable::in_use() const
{
    std::vector<Place> places;
    places.reserve(place_of_.size());
    for (Place place = 0; place < entries_.size(); ++place) {
        if (entries_[place].in_use()) {
            places.push_back(place);
        }
    }
    return places;
}

std::optional<QueueTable::Place> QueueTable::numbered(std::int64_t number) const
{
    const auto found = place_of_.find(number);
    return found == place_of_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<QueueTable::Place> QueueTable::undelivered(double msg_id, const std::string& recipient) const
{
    const auto found = undelivered_.find(msg_id);
    if (found == undelivered_.end()) {
        return std::nullopt;
    }
    const auto place = std::find_if(found->second.begin(), found->second.end(), [&](Place each) {
        return recipient.empty() || equal_ignoring_case(entries_[each].recipient, recipient);
    });
    return place == found->second.end() ? std::nullopt : std::optional(*place);
}

std::size_t QueueTable::count_from(const std::string& sender, bool to_room) const
{
    return count_in(to_room ? written_to_rooms_ : written_to_users_, sender);
}

std::size_t QueueTable::count_to(const std::string& recipient) const
{
    return count_in(waiting_for_, recipient);
}

void QueueTable::count(const QueueEntry& entry, std::int64_t change)
{
    const auto add = [change](auto& counts, const std::string& name) {
        const auto counted = counts.try_emplace(name, 0).first;
        counted->second += change;
        if (counted->second == 0) {
            counts.erase(counted);
        }
    };
    if (!entry.automatic) {
        add(entry.to_room() ? written_to_rooms_ : written_to_users_, entry.sender);
    }
    if (!entry.to_room()) {
        add(waiting_for_, entry.recipient);
    }
}

bool QueueTable::is_message_before(std::int64_t number, const std::string& recipient) const
{
    const auto found = by_recipient_.find(recipient);
    return found != by_recipient_.end() && *found->second.begin() < number;
}

void QueueTable::make_due(DateTime now, std::int64_t pause)
{
    while (!tried_.empty() && seconds_between(tried_.begin()->first, now) > pause) {
        due_.insert(tried_.begin()->second);
        tried_.erase(tried_.begin());
    }
    while (!tried_.empty() && tried_.rbegin()->first > now) {
        due_.insert(tried_.rbegin()->second);
        tried_.erase(std::prev(tried_.end()));
    }
}

std::optional<QueueTable::Place> QueueTable::next_due(Place from) const
{
    return first_from(due_, from);
}

std::optional<QueueTable::Place> QueueTable::next_to_expire(DateTime now) const
{
    const bool any = !by_expiration_.empty() && by_expiration_.begin()->first < now;
    return any ? std::optional(by_expiration_.begin()->second) : std::nullopt;
}

std::optional<QueueTable::Place> QueueTable::next_finished(Place from) const
{
    return first_from(finished_, from);
}

std::optional<QueueTable::Place> QueueTable::next_unconfirmed(Place from) const
{
    return first_from(unconfirmed_, from);
}

void QueueTable::set_attempted(Place place, DateTime now)
{
    unschedule(place);
    entries_[place].last_attempt = now;
    if (!entries_[place].sent && head_of(entries_[place].recipient) == place) {
        tried_.emplace(now, place);
    }
}

void QueueTable::set_sent(Place place, DateTime sent, DateTime last_attempt)
{
    unschedule(place);
    auto& entry = entries_[place];
    entry.sent = true;
    entry.sent_time = sent;
    entry.last_attempt = last_attempt;
    if (!entry.delivered && !entry.expired) {
        unconfirmed_.insert(place);
    }
}

void QueueTable::set_expired(Place place, bool expired)
{
    auto& entry = entries_[place];
    entry.expired = expired;
    if (expired) {
        by_expiration_.erase({entry.expiration_time, place});
        unconfirmed_.erase(place);
        finished_.insert(place);
    } else if (!entry.delivered) {
        by_expiration_.emplace(entry.expiration_time, place);
        finished_.erase(place);
        if (entry.sent) {
            unconfirmed_.insert(place);
        }
    }
}

void QueueTable::set_delivered(Place place, DateTime now)
{
    auto& entry = entries_[place];
    entry.delivered = true;
    entry.delivered_time = now;
    remove(undelivered_, entry.MsgID, place);
    by_expiration_.erase({entry.expiration_time, place});
    unconfirmed_.erase(place);
    finished_.insert(place);
}

/// The oldest entry of a recipient.
std::optional<QueueTable::Place> QueueTable::head_of(const std::string& recipient) const
{
    const auto found = by_recipient_.find(recipient);
    return found == by_recipient_.end() ? std::nullopt : std::optional(place_of_.at(*found->second.begin()));
}

/// Lets a recipient's oldest entry be sent, unless it was sent already.
void QueueTable::schedule(Place place)
{
    const auto& entry = entries_[place];
    if (entry.sent) {
        return;
    }
    if (entry.last_attempt.empty()) {
        due_.insert(place);
    } else if (!due_.contains(place)) {
        tried_.emplace(entry.last_attempt, place);
    }
}

void QueueTable::unschedule(Place place)
{
    due_.erase(place);
    tried_.erase({entries_[place].last_attempt, place});
}

} // namespace qz::queue
