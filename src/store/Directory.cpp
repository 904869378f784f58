#include "store/Directory.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "store/RecordRows.h"
#include "store/Statements.h"

#include <algorithm>
#include <utility>

namespace qz::store {

namespace {

/// Whether the indexes of one record hold for the other.
bool same_in_indexes(const UserRecord& left, const UserRecord& right)
{
    return left.UserName == right.UserName && left.FirstName == right.FirstName
        && left.LastName == right.LastName;
}
bool same_in_indexes(const BuddyRecord& left, const BuddyRecord& right)
{
    return left.UserName == right.UserName && left.Buddy == right.Buddy;
}
bool same_in_indexes(const RoomRecord& left, const RoomRecord& right)
{
    return left.RoomName == right.RoomName && left.UserName_Owner == right.UserName_Owner;
}

bool is_before(const BuddyRecord* left, const BuddyRecord* right)
{
    return RecordOrder()(*left, *right);
}

/// A name gets its first record in the order of the copy.
template <typename Index> void enter_first(Index& index, const std::string& name, const UserRecord& user)
{
    const auto [entry, is_new] = index.emplace(name, &user);
    if (!is_new && RecordOrder()(user, *entry->second)) {
        entry->second = &user;
    }
}
template <typename Index> void leave_first(Index& index, const std::string& name, const UserRecord& user)
{
    const auto entry = index.find(name);
    if (entry != index.end() && entry->second == &user) {
        index.erase(entry);
    }
}

template <typename Index> void count_one_less(Index& counts, const std::string& name)
{
    const auto entry = counts.find(name);
    if (--entry->second == 0) {
        counts.erase(entry);
    }
}

/// A visitor of rows that hands on the record of each.
template <typename Record, typename Take> platform::RowVisitor reading(Take take)
{
    return [take, finder = platform::ColumnFinder()](
               const std::vector<std::string>& columns, const std::vector<platform::Value>& values) mutable {
        Record record;
        read(Row{finder, columns, values}, record);
        take(std::move(record));
    };
}

template <typename Index> auto found_in(const Index& index, std::string_view name)
{
    const auto entry = name.empty() ? index.end() : index.find(name);
    return entry == index.end() ? nullptr : entry->second;
}

} // namespace

Directory::Directory(Database& database, const Counters& counters, Journal& journal)
    : database_(database), counters_(counters), journal_(journal)
{
}

void Directory::SetUsers()
{
    load(users_, {"SetUsers", tables::kUsers, statements::kSelectUsers, &Counters::users});
}

void Directory::load_users_once()
{
    if (!users_.loaded_before) {
        SetUsers();
    }
}

std::optional<std::uint64_t> Directory::refresh_users()
{
    if (!mark_of(tables::kUsers)) {
        return std::nullopt;
    }
    SetUsers();
    return users_.mark ? std::optional(users_.mark->total) : std::nullopt;
}

void Directory::SetMyBuddies()
{
    load(buddies_, {"SetMyBuddies", tables::kBuddies, statements::kSelectBuddies, &Counters::buddies});
}

void Directory::SetRooms()
{
    load(rooms_, {"SetRooms", tables::kRooms, statements::kSelectRooms, &Counters::rooms});
}

template <typename Record> void Directory::load(Snapshot<Record>& snapshot, const Source& source)
{
    // Taken before the rows are read: a change that comes in between makes the next load read again. Where
    // there is no mark (a closed connection), the load goes on and reports what is wrong.
    const auto now = mark_of(source.table);
    if (now && snapshot.is_known(*now) && (!snapshot.has_changes() || follow(snapshot))) {
        return;
    }
    snapshot.loaded_before = true;
    snapshot.forget();
    guarded(journal_, source.loader, no_address, [&] {
        if (load_all(snapshot, source)) {
            snapshot.mark = now;
        }
    });
}

/// @return false when the table could not be counted, which has been reported: the copy then stays, so that
/// the users are known while the database is away.
template <typename Record> bool Directory::load_all(Snapshot<Record>& snapshot, const Source& source)
{
    auto count = (counters_.*source.count)();
    if (count.value_or(0) >= 1) { // counted a second time, as hosts that look on know it
        count = (counters_.*source.count)();
    }
    if (!count) {
        return false;
    }
    // On every way out, before a failure is reported: whoever hears of it may ask the directory.
    struct KeepingOne {
        Directory& directory;
        Snapshot<Record>& snapshot;
        ~KeepingOne() { directory.keep_one(snapshot); }
    };
    const KeepingOne keeping{*this, snapshot};
    bool is_old = true;
    const auto drop_old = [&] {
        if (std::exchange(is_old, false)) {
            clear_indexes(snapshot);
            snapshot.records.clear();
            snapshot.last_key = 0;
        }
    };
    if (*count >= 1) {
        database_.visit(source.rows, reading<Record>([&](Record record) {
            drop_old();
            snapshot.last_key = (std::max)(snapshot.last_key, key_of(record).id);
            enter(*snapshot.records.insert(snapshot.records.end(), std::move(record)));
        }));
    }
    drop_old();
    return true;
}

/// Does to the copy what the engine has done to the table.
/// @return false when that is not all: a row that was added is not found, or the database fails.
template <typename Record> bool Directory::follow(Snapshot<Record>& snapshot)
{
    Following following{.missing = snapshot.added};
    const bool was_read = attempt([&] {
        for (const auto& row : snapshot.removed) {
            remove(snapshot, row, following);
        }
        for (const auto& rows : snapshot.to_read) {
            visit(snapshot, rows,
                reading<Record>([&](Record record) { put(snapshot, std::move(record), following); }));
        }
    });
    keep_one(snapshot);
    if (!was_read || following.missing > 0) {
        return false;
    }
    snapshot.clear_changes();
    return true;
}

template <typename Record>
void Directory::put(Snapshot<Record>& snapshot, Record record, Following& following)
{
    auto& records = snapshot.records;
    const auto key = key_of(record).id;
    snapshot.last_key = (std::max)(snapshot.last_key, key);
    const auto known = records.find(record);
    if (known == records.end()) {
        following.missing -= following.taken_out.contains(key) ? 0 : 1;
        if (snapshot.is_empty()) {
            leave(*records.begin());
            records.clear();
        }
        enter(*records.insert(std::move(record)).first);
        return;
    }
    const bool in_place = same_in_indexes(*known, record);
    if (!in_place) {
        leave(*known);
    }
    auto node = records.extract(known); // its address stays
    node.value() = std::move(record);
    const auto placed = records.insert(std::move(node)).position;
    if (!in_place) {
        enter(*placed);
    }
}

template <typename Record>
void Directory::remove(Snapshot<Record>& snapshot, const Record& record, Following& following)
{
    const auto known = snapshot.records.find(record);
    if (known == snapshot.records.end()) { // it was added, and removed before it was ever read
        --following.missing;
        return;
    }
    following.taken_out.insert(key_of(record).id);
    leave(*known);
    snapshot.records.erase(known);
}

template <typename Record> void Directory::keep_one(Snapshot<Record>& snapshot)
{
    if (snapshot.records.empty()) {
        enter(*snapshot.records.insert(Record{}).first);
    }
}

void Directory::visit(
    const Snapshot<UserRecord>& /*users*/, const RowsOfName& rows, const platform::RowVisitor& visitor)
{
    database_.visit(statements::kSelectUser, visitor, Quoted{rows.name});
}

void Directory::visit(
    const Snapshot<BuddyRecord>& /*buddies*/, const RowsOfName& rows, const platform::RowVisitor& visitor)
{
    const Quoted owner{rows.name};
    const Quoted buddy{rows.second};
    if (rows.after) {
        database_.visit(statements::kSelectNewBuddyEntries, visitor, owner, buddy, *rows.after);
    } else {
        database_.visit(statements::kSelectBuddyEntries, visitor, owner, buddy);
    }
}

void Directory::visit(
    const Snapshot<RoomRecord>& /*rooms*/, const RowsOfName& rows, const platform::RowVisitor& visitor)
{
    database_.visit(statements::kSelectNewRooms, visitor, Quoted{rows.name}, rows.after.value_or(0));
}

std::optional<TableMark> Directory::mark_of(const platform::Table& table)
{
    std::optional<TableMark> mark;
    attempt([&] {
        const auto total = database_.change_mark(table);
        mark = TableMark{total, database_.own_changes(table)};
    });
    return mark;
}

template <typename Record>
void Directory::run(
    Snapshot<Record>& snapshot, const platform::Table& table, const Change& change, OwnChange<Record> note)
{
    const auto before = database_.own_changes(table);
    change();
    snapshot.note(before, database_.own_changes(table), std::move(note));
}

void Directory::add_user(std::string_view name, const Change& change)
{
    run(users_, tables::kUsers, change, {.to_read = RowsOfName{.name = std::string(name)}, .added = 1});
}

void Directory::change_user(std::string_view name, const Change& change)
{
    run(users_, tables::kUsers, change, {.to_read = RowsOfName{.name = std::string(name)}});
}

/// Only what is newer than the copy is read again: an owner may have many entries of one buddy.
void Directory::add_buddy(std::string_view owner, std::string_view buddy, const Change& change)
{
    run(buddies_, tables::kBuddies, change,
        {.to_read = RowsOfName{std::string(owner), std::string(buddy), buddies_.last_key}, .added = 1});
}

/// Which rows are concerned is asked of the database, whose comparison of names is not that of the copy.
/// Without any, the statement would change nothing but the table's mark, at the price of a load.
void Directory::change_buddy(std::string_view owner, std::string_view buddy, const Change& change)
{
    const RowsOfName pair{std::string(owner), std::string(buddy)};
    std::vector<BuddyRecord> rows; // taken out, and put back as far as they are still there
    const bool are_known = attempt([&] {
        visit(buddies_, pair, reading<BuddyRecord>([&](BuddyRecord row) { rows.push_back(std::move(row)); }));
    });
    if (!are_known) {
        change();
    } else if (!rows.empty()) {
        run(buddies_, tables::kBuddies, change, {.to_read = pair, .removed = std::move(rows)});
    }
}

void Directory::add_room(std::string_view name, const Change& change)
{
    run(rooms_, tables::kRooms, change,
        {.to_read = RowsOfName{.name = std::string(name), .after = rooms_.last_key}, .added = 1});
}

void Directory::remove_row(const BuddyRecord& row, const Change& change)
{
    run(buddies_, tables::kBuddies, change, {.removed = {row}});
}

void Directory::remove_row(const RoomRecord& row, const Change& change)
{
    run(rooms_, tables::kRooms, change, {.removed = {row}});
}

void Directory::clear_indexes(const Snapshot<UserRecord>& /*users*/)
{
    user_by_name_.clear();
    user_by_lower_name_.clear();
    ++version_of_names_;
}

void Directory::clear_indexes(const Snapshot<BuddyRecord>& /*buddies*/)
{
    entries_by_buddy_.clear();
}

void Directory::enter(const UserRecord& user)
{
    enter_first(user_by_name_, user.UserName, user);
    enter_first(user_by_lower_name_, lower(user.UserName), user);
    ++version_of_names_;
}

void Directory::leave(const UserRecord& user)
{
    leave_first(user_by_name_, user.UserName, user);
    leave_first(user_by_lower_name_, lower(user.UserName), user);
    ++version_of_names_;
}

void Directory::enter(const BuddyRecord& entry)
{
    auto& entries = entries_by_buddy_[entry.Buddy];
    const bool is_last = entries.empty() || is_before(entries.back(), &entry);
    entries.insert(
        is_last ? entries.end() : std::upper_bound(entries.begin(), entries.end(), &entry, is_before),
        &entry);
}

void Directory::leave(const BuddyRecord& entry)
{
    const auto listed = entries_by_buddy_.find(entry.Buddy);
    auto& entries = listed->second;
    entries.erase(std::lower_bound(entries.begin(), entries.end(), &entry, is_before));
    if (entries.empty()) {
        entries_by_buddy_.erase(listed);
    }
}

void Directory::clear_indexes(const Snapshot<RoomRecord>& /*rooms*/)
{
    rooms_of_owner_.clear();
    rooms_of_lower_name_.clear();
}

void Directory::enter(const RoomRecord& room)
{
    ++rooms_of_owner_[room.UserName_Owner];
    ++rooms_of_lower_name_[lower(room.RoomName)];
}

void Directory::leave(const RoomRecord& room)
{
    count_one_less(rooms_of_owner_, room.UserName_Owner);
    count_one_less(rooms_of_lower_name_, lower(room.RoomName));
}

const UserRecord* Directory::user_named(std::string_view name) const
{
    return found_in(user_by_name_, name);
}

const UserRecord* Directory::user_named_in_any_case(std::string_view name) const
{
    return found_in(user_by_lower_name_, lower(name));
}

const RoomRecord* Directory::room_named(std::string_view name) const
{
    const auto [begin, end] = rooms().equal_range(NameToFind{name});
    const auto found =
        std::find_if(begin, end, [&](const RoomRecord& room) { return room.RoomName == name; });
    return found == end || name.empty() ? nullptr : &*found;
}

bool Directory::has_room_in_any_case(std::string_view name) const
{
    return !name.empty() && rooms_of_lower_name_.contains(lower(name));
}

std::size_t Directory::count_rooms_of(std::string_view owner) const
{
    const auto owned = rooms_of_owner_.find(owner);
    return owned == rooms_of_owner_.end() ? 0 : owned->second;
}

const BuddyRecord* Directory::buddy_named(std::string_view owner, std::string_view buddy) const
{
    const auto [begin, end] = buddies().equal_range(NameToFind{owner, buddy});
    const auto found = std::find_if(begin, end,
        [&](const BuddyRecord& entry) { return entry.UserName == owner && entry.Buddy == buddy; });
    return found == end || owner.empty() ? nullptr : &*found;
}

std::vector<const BuddyRecord*> Directory::list_of(std::string_view owner) const
{
    std::vector<const BuddyRecord*> list;
    const auto [begin, end] = buddies().equal_range(NameToFind{owner});
    for (auto entry = begin; entry != end && !owner.empty(); ++entry) {
        if (entry->UserName == owner) {
            list.push_back(&*entry);
        }
    }
    return list;
}

const std::vector<const BuddyRecord*>& Directory::entries_listing(std::string_view buddy) const
{
    static const std::vector<const BuddyRecord*> kNone;
    const auto found = buddy.empty() ? entries_by_buddy_.end() : entries_by_buddy_.find(buddy);
    return found == entries_by_buddy_.end() ? kNone : found->second;
}

std::vector<std::string> Directory::ListAllUsers_web() const
{
    std::vector<std::string> names;
    guarded(journal_, "ListAllUsers_web", no_address, [&] {
        for (const auto& row : database_.query(statements::kSelectUserNames)) {
            names.push_back(row["UserName"].text());
        }
    });
    if (names.empty()) {
        names.emplace_back();
    }
    return names;
}

std::int32_t Directory::ListAllUsersCount_web() const
{
    return guarded(journal_, "ListAllUsersCount_web", no_address, 0,
        [&] { return static_cast<std::int32_t>(database_.query(statements::kSelectUserNames).size()); });
}

} // namespace qz::store
