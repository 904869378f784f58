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

/// The same for names that differ in letter case only.
std::size_t hash_of(const std::string& name)
{
    return std::hash<std::string>{}(lower(name));
}

} // namespace

QueueTable::Place QueueTable::put(QueueEntry entry)
{
    entry.number = ++last_number_;
    return place(std::move(entry));
}

QueueTable::Place QueueTable::restore(QueueEntry entry)
{
    return place(std::move(entry));
}

QueueTable::Place QueueTable::place(QueueEntry entry)
{
    if (free_.empty()) {
        free_.push(entries_.size());
        entries_.emplace_back();
    }
    const auto place = free_.top();
    free_.pop();
    auto& placed = entries_[place] = std::move(entry);
    const bool finished = placed.delivered || placed.expired;
    place_of_.emplace(placed.number, place);
    count(placed, 1);
    if (!placed.delivered) {
        undelivered_[placed.MsgID].emplace(hash_of(placed.recipient), place);
    }
    if (finished) {
        finished_.insert(place);
    } else {
        by_expiration_.emplace(placed.expiration_time, place);
    }
    if (!placed.sent) {
        enter_line(place);
    } else if (!finished) {
        enter_unconfirmed(place);
    }
    return place;
}

void QueueTable::free(Place place)
{
    auto& entry = entries_[place];
    leave_line(place);
    leave_unconfirmed(place);
    place_of_.erase(entry.number);
    count(entry, -1);
    remove(undelivered_, entry.MsgID, std::pair(hash_of(entry.recipient), place));
    by_expiration_.erase({entry.expiration_time, place});
    finished_.erase(place);
    entry = {};
    free_.push(place);
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
    if (!recipient.empty()) {
        return find_undelivered(msg_id, recipient,
            [&](const QueueEntry& entry) { return equal_ignoring_case(entry.recipient, recipient); });
    }
    const auto found = undelivered_.find(msg_id);
    if (found == undelivered_.end()) {
        return std::nullopt;
    }
    const auto by_place = [](const auto& left, const auto& right) {
        return left.second < right.second;
    };
    return std::min_element(found->second.begin(), found->second.end(), by_place)->second;
}

bool QueueTable::holds(const std::string& sender, const std::string& recipient, double msg_id) const
{
    return find_undelivered(msg_id, recipient, [&](const QueueEntry& entry) {
        return entry.recipient == recipient && entry.sender == sender;
    }).has_value();
}

/// The first entry with the MsgID and for the recipient, in any letter case, that meets a condition.
template <typename Condition>
std::optional<QueueTable::Place> QueueTable::find_undelivered(
    double msg_id, const std::string& recipient, Condition condition) const
{
    const auto found = undelivered_.find(msg_id);
    if (found == undelivered_.end()) {
        return std::nullopt;
    }
    const auto hash = hash_of(recipient);
    for (auto each = found->second.lower_bound({hash, 0}); each != found->second.end() && each->first == hash;
         ++each) {
        if (condition(entries_[each->second])) {
            return each->second;
        }
    }
    return std::nullopt;
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
    const auto found = line_for_.find(recipient);
    return found != line_for_.end() && *found->second.begin() < number;
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

std::optional<QueueTable::Place> QueueTable::next_to_resend(DateTime now, std::int64_t longest) const
{
    if (to_resend_.empty()) {
        return std::nullopt;
    }
    if (to_resend_.begin()->first < now) {
        return to_resend_.begin()->second;
    }
    return to_resend_.rbegin()->first > now.plus_seconds(longest) ? std::optional(to_resend_.rbegin()->second)
                                                                  : std::nullopt;
}

void QueueTable::set_attempted(Place place, DateTime now)
{
    unschedule(place);
    entries_[place].last_attempt = now;
    if (!entries_[place].sent && head_of(entries_[place].recipient) == place) {
        tried_.emplace(now, place);
    }
}

void QueueTable::set_sent(Place place, DateTime sent, DateTime last_attempt, DateTime resend)
{
    leave_line(place);
    auto& entry = entries_[place];
    entry.sent = true;
    entry.sent_time = sent;
    entry.last_attempt = last_attempt;
    entry.resends = 0;
    entry.resend_time = resend;
    if (!entry.delivered && !entry.expired) {
        enter_unconfirmed(place);
    }
}

void QueueTable::set_resent(Place place, int resends, DateTime resend)
{
    leave_unconfirmed(place);
    entries_[place].resends = resends;
    entries_[place].resend_time = resend;
    enter_unconfirmed(place);
}

void QueueTable::set_unsent(Place place, DateTime now)
{
    if (!entries_[place].sent) {
        return; // its recipient has logged on meanwhile
    }
    leave_unconfirmed(place);
    entries_[place].sent = false;
    entries_[place].last_attempt = now;
    enter_line(place);
}

void QueueTable::set_unsent(const std::string& recipient)
{
    if (const auto sent = unconfirmed_by_.find(recipient); sent != unconfirmed_by_.end()) {
        const auto numbers = sent->second; // a copy: the line that follows changes it
        std::for_each(numbers.begin(), numbers.end(),
            [&](std::int64_t number) { set_unsent(place_of_.at(number), DateTime{}); });
    }
    const auto head = head_of(recipient);
    if (!head) {
        return;
    }
    unschedule(*head);
    for (const auto number : line_for_.at(recipient)) {
        entries_[place_of_.at(number)].last_attempt = DateTime{}; // only the oldest is scheduled
    }
    schedule(*head);
}

void QueueTable::set_expired(Place place, bool expired)
{
    auto& entry = entries_[place];
    entry.expired = expired;
    if (expired) {
        by_expiration_.erase({entry.expiration_time, place});
        leave_unconfirmed(place);
        finished_.insert(place);
    } else if (!entry.delivered) {
        by_expiration_.emplace(entry.expiration_time, place);
        finished_.erase(place);
        if (entry.sent) {
            enter_unconfirmed(place);
        }
    }
}

void QueueTable::set_delivered(Place place, DateTime now)
{
    auto& entry = entries_[place];
    entry.delivered = true;
    entry.delivered_time = now;
    remove(undelivered_, entry.MsgID, std::pair(hash_of(entry.recipient), place));
    by_expiration_.erase({entry.expiration_time, place});
    leave_unconfirmed(place);
    finished_.insert(place);
}

/// The oldest entry of a recipient that is not sent.
std::optional<QueueTable::Place> QueueTable::head_of(const std::string& recipient) const
{
    const auto found = line_for_.find(recipient);
    return found == line_for_.end() ? std::nullopt : std::optional(place_of_.at(*found->second.begin()));
}

/// An entry takes its place among those that wait to be sent to its recipient, by its age.
void QueueTable::enter_line(Place place)
{
    const auto& entry = entries_[place];
    const auto head = head_of(entry.recipient);
    line_for_[entry.recipient].insert(entry.number);
    if (!head || entry.number < entries_[*head].number) {
        if (head) {
            unschedule(*head);
        }
        schedule(place);
    }
}

void QueueTable::leave_line(Place place)
{
    const auto& entry = entries_[place];
    unschedule(place);
    remove(line_for_, entry.recipient, entry.number);
    if (const auto head = head_of(entry.recipient)) {
        schedule(*head);
    }
}

void QueueTable::enter_unconfirmed(Place place)
{
    const auto& entry = entries_[place];
    to_resend_.emplace(entry.resend_time, place);
    unconfirmed_by_[entry.recipient].insert(entry.number);
}

void QueueTable::leave_unconfirmed(Place place)
{
    const auto& entry = entries_[place];
    to_resend_.erase({entry.resend_time, place});
    remove(unconfirmed_by_, entry.recipient, entry.number);
}

/// Lets a recipient's oldest entry be tried when its time has come.
void QueueTable::schedule(Place place)
{
    const auto& entry = entries_[place];
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
