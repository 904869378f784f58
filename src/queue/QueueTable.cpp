#include "queue/QueueTable.h"

#include "base/Text.h"

#include <algorithm>
#include <iterator>

namespace qz::queue {

namespace {

std::optional<QueueTable::Place> first_from(const std::set<QueueTable::Place>& places, QueueTable::Place from)
{
    const auto found = places.lower_bound(from);
    return found == places.end() ? std::nullopt : std::optional(*found);
}

template <typename Map> auto find_in(Map& map, const std::string& name) -> decltype(&map.begin()->second)
{
    const auto found = map.find(name);
    return found == map.end() ? nullptr : &found->second;
}

/// An index that was much larger once.
template <typename Map> void shrink_index(Map& map)
{
    constexpr std::size_t kMany = 1024;
    if (map.bucket_count() > kMany && map.size() < map.bucket_count() / 8) {
        map.rehash(0);
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
    const auto place = slots_.take();
    auto& slot = slots_[place];
    slot.entry = std::move(entry);
    slot.name_hash = hash_of(slot.entry.recipient);
    slot.recipient = &recipients_[slot.entry.recipient];
    ++slot.recipient->entries;
    slot.sender = slot.entry.automatic ? nullptr : &senders_[slot.entry.sender];
    place_of_.emplace(slot.entry.number, place);
    count(slot, 1);
    enter(place, {}, standing_of(slot.entry.progress));
    return place;
}

QueueEntry QueueTable::free(Place place)
{
    auto& slot = slots_[place];
    leave(place, standing_of(slot.entry.progress), {});
    count(slot, -1);
    place_of_.erase(slot.entry.number);
    if (--slot.recipient->entries == 0) {
        recipients_.erase(slot.entry.recipient);
    }
    auto entry = std::exchange(slot, {}).entry;
    slots_.release(place);
    return entry;
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
    slots_.visit([&](Place place) { places.push_back(place); });
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
        if (condition(at(each->second))) {
            return each->second;
        }
    }
    return std::nullopt;
}

void QueueTable::shrink()
{
    slots_.shrink();
    shrink_index(place_of_);
    shrink_index(recipients_);
    shrink_index(senders_);
    shrink_index(pairs_);
    shrink_index(undelivered_);
}

std::size_t QueueTable::count_from(const std::string& sender, bool to_room) const
{
    const auto* const found = find_sender(sender);
    return found == nullptr ? 0 : static_cast<std::size_t>(to_room ? found->to_rooms : found->to_users);
}

std::size_t QueueTable::count_to(const std::string& recipient) const
{
    const auto* const found = find_recipient(recipient);
    return found == nullptr ? 0 : static_cast<std::size_t>(found->not_from_rooms);
}

std::size_t QueueTable::count_between(const std::string& sender, const std::string& recipient) const
{
    const auto found = pairs_.find({find_sender(sender), find_recipient(recipient)});
    return found == pairs_.end() ? 0 : static_cast<std::size_t>(found->second);
}

std::size_t QueueTable::bytes_from(const std::string& sender) const
{
    const auto* const found = find_sender(sender);
    return found == nullptr ? 0 : static_cast<std::size_t>(found->bytes);
}

std::size_t QueueTable::bytes_to(const std::string& recipient) const
{
    const auto* const found = find_recipient(recipient);
    return found == nullptr ? 0 : static_cast<std::size_t>(found->bytes);
}

/// @param change  1 for an entry that came, -1 for one that goes.
void QueueTable::count(const Slot& slot, std::int64_t change)
{
    const auto& entry = slot.entry;
    const bool alone = change > 0 ? entry.text.add_entry() == 1 : entry.text.remove_entry() == 0;
    const auto bytes = change * static_cast<std::int64_t>(entry.text.size());
    if (!entry.to_room()) {
        slot.recipient->not_from_rooms += change;
        slot.recipient->bytes += bytes;
    }
    if (slot.sender == nullptr) {
        return;
    }
    auto& sender = *slot.sender;
    sender.bytes += alone ? bytes : 0;
    if (entry.to_room()) {
        sender.to_rooms += change;
    } else {
        sender.to_users += change;
        count_pair(slot, change);
    }
    if (sender.to_users == 0 && sender.to_rooms == 0) {
        senders_.erase(entry.sender);
    }
}

void QueueTable::count_pair(const Slot& slot, std::int64_t change)
{
    const auto counted = pairs_.try_emplace({slot.sender, slot.recipient}, 0).first;
    counted->second += change;
    if (counted->second == 0) {
        pairs_.erase(counted);
    }
}

const QueueTable::Recipient* QueueTable::find_recipient(const std::string& name) const
{
    return find_in(recipients_, name);
}

const QueueTable::Sender* QueueTable::find_sender(const std::string& name) const
{
    return find_in(senders_, name);
}

bool QueueTable::is_message_before(std::int64_t number, const std::string& recipient) const
{
    const auto* const found = find_recipient(recipient);
    return found != nullptr && !found->line.empty() && *found->line.begin() < number;
}

void QueueTable::make_due(DateTime now, std::int64_t pause)
{
    const auto move = [this](Times::iterator tried) {
        slots_[tried->second].schedule = Schedule::Due;
        due_.insert(tried->second);
        tried_.erase(tried);
    };
    while (!tried_.empty() && seconds_between(tried_.begin()->first, now) > pause) {
        move(tried_.begin());
    }
    while (!tried_.empty() && tried_.rbegin()->first > now) {
        move(std::prev(tried_.end()));
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
    auto& slot = slots_[place];
    slot.entry.progress.last_attempt = now;
    if (!slot.entry.progress.sent && head_of(*slot.recipient) == place) {
        slot.schedule = Schedule::Tried;
        slot.tried = tried_.emplace_hint(tried_.end(), now, place);
    }
}

void QueueTable::set_sent(Place place, DateTime sent, DateTime last_attempt, DateTime resend)
{
    auto progress = at(place).progress;
    progress.sent = true;
    progress.sent_time = sent;
    progress.last_attempt = last_attempt;
    progress.resends = 0;
    progress.resend_time = resend;
    set_progress(place, progress);
}

void QueueTable::set_resent(Place place, int resends, DateTime resend)
{
    auto progress = at(place).progress;
    progress.resends = resends;
    progress.resend_time = resend;
    set_progress(place, progress);
}

void QueueTable::set_unsent(Place place, DateTime now)
{
    auto progress = at(place).progress;
    if (!progress.sent) {
        return; // its recipient has logged on meanwhile
    }
    progress.sent = false;
    progress.last_attempt = now;
    set_progress(place, progress);
}

void QueueTable::count_connection(const std::string& recipient)
{
    if (auto* const found = find_in(recipients_, recipient)) {
        ++found->connections;
    }
}

void QueueTable::set_unsent(const std::string& recipient)
{
    const auto* const found = find_recipient(recipient);
    if (found == nullptr) {
        return;
    }
    const auto sent = found->unconfirmed; // a copy: the line that follows changes it
    std::for_each(
        sent.begin(), sent.end(), [&](std::int64_t number) { set_unsent(place_of_.at(number), DateTime{}); });
    const auto head = head_of(*found);
    if (!head) {
        return;
    }
    unschedule(*head);
    for (const auto number : found->line) {
        slots_[place_of_.at(number)].entry.progress.last_attempt = DateTime{}; // only the oldest is scheduled
    }
    schedule(*head);
}

void QueueTable::set_expired(Place place, bool expired)
{
    auto progress = at(place).progress;
    progress.expired = expired;
    set_progress(place, progress);
}

void QueueTable::set_delivered(Place place, DateTime now)
{
    auto progress = at(place).progress;
    progress.delivered = true;
    progress.delivered_time = now;
    set_progress(place, progress);
}

void QueueTable::set_progress(Place place, const Progress& progress)
{
    auto& current = slots_[place].entry.progress;
    const auto was = standing_of(current);
    const auto is = standing_of(progress);
    const Standing stays{
        .in_line = was.in_line && is.in_line && progress.last_attempt == current.last_attempt,
        .unconfirmed = was.unconfirmed && is.unconfirmed && progress.resend_time == current.resend_time,
        .undelivered = was.undelivered && is.undelivered,
        .finished = was.finished && is.finished,
        .expiring = was.expiring && is.expiring};
    leave(place, was, stays);
    current = progress;
    enter(place, stays, is);
}

QueueTable::Standing QueueTable::standing_of(const Progress& progress)
{
    const bool finished = progress.delivered || progress.expired;
    return {.in_line = !progress.sent,
        .unconfirmed = progress.sent && !finished,
        .undelivered = !progress.delivered,
        .finished = finished,
        .expiring = !finished};
}

void QueueTable::leave(Place place, const Standing& was, const Standing& is)
{
    const auto& slot = slots_[place];
    if (was.in_line && !is.in_line) {
        leave_line(place);
    }
    if (was.unconfirmed && !is.unconfirmed) {
        to_resend_.erase(slot.resend);
        slot.recipient->unconfirmed.erase(slot.entry.number);
    }
    if (was.undelivered && !is.undelivered) {
        const auto same_number = undelivered_.find(slot.entry.MsgID);
        same_number->second.erase({slot.name_hash, place});
        if (same_number->second.empty()) {
            undelivered_.erase(same_number);
        }
    }
    if (was.finished && !is.finished) {
        finished_.erase(place);
    }
    if (was.expiring && !is.expiring) {
        by_expiration_.erase(slot.expiration);
    }
}

/// Most times are the latest when they are entered: the hint then finds their place at once.
void QueueTable::enter(Place place, const Standing& was, const Standing& is)
{
    auto& slot = slots_[place];
    const auto& entry = slot.entry;
    if (is.in_line && !was.in_line) {
        enter_line(place);
    }
    if (is.unconfirmed && !was.unconfirmed) {
        slot.resend = to_resend_.emplace_hint(to_resend_.end(), entry.progress.resend_time, place);
        slot.recipient->unconfirmed.insert(entry.number);
    }
    if (is.undelivered && !was.undelivered) {
        undelivered_[entry.MsgID].emplace(slot.name_hash, place);
    }
    if (is.finished && !was.finished) {
        finished_.insert(place);
    }
    if (is.expiring && !was.expiring) {
        slot.expiration = by_expiration_.emplace_hint(by_expiration_.end(), entry.expiration_time, place);
    }
}

/// The oldest entry of a recipient that is not sent.
std::optional<QueueTable::Place> QueueTable::head_of(const Recipient& recipient) const
{
    return recipient.line.empty() ? std::nullopt : std::optional(place_of_.at(*recipient.line.begin()));
}

/// An entry takes its place among those that wait to be sent to its recipient, by its age.
void QueueTable::enter_line(Place place)
{
    const auto& slot = slots_[place];
    const auto head = head_of(*slot.recipient);
    slot.recipient->line.insert(slot.entry.number);
    if (!head || slot.entry.number < at(*head).number) {
        if (head) {
            unschedule(*head);
        }
        schedule(place);
    }
}

void QueueTable::leave_line(Place place)
{
    const auto& slot = slots_[place];
    unschedule(place);
    slot.recipient->line.erase(slot.entry.number);
    if (const auto head = head_of(*slot.recipient)) {
        schedule(*head);
    }
}

/// Lets a recipient's oldest entry be tried when its time has come.
void QueueTable::schedule(Place place)
{
    auto& slot = slots_[place];
    if (slot.schedule != Schedule::None) {
        return;
    }
    if (slot.entry.progress.last_attempt.empty()) {
        slot.schedule = Schedule::Due;
        due_.insert(place);
    } else {
        slot.schedule = Schedule::Tried;
        slot.tried = tried_.emplace_hint(tried_.end(), slot.entry.progress.last_attempt, place);
    }
}

void QueueTable::unschedule(Place place)
{
    auto& slot = slots_[place];
    if (slot.schedule == Schedule::Due) {
        due_.erase(place);
    } else if (slot.schedule == Schedule::Tried) {
        tried_.erase(slot.tried);
    }
    slot.schedule = Schedule::None;
}

} // namespace qz::queue
