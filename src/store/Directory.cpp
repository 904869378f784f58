#include "store/Directory.h"

#include "base/Guarded.h"
#include "base/Text.h"
#include "platform/database/ColumnFinder.h"
#include "store/Statements.h"

#include <algorithm>

namespace qz::store {

namespace {

/// The row at hand while a table is read.
struct Row {
    const platform::Value& Fields(std::string_view name) { return values[finder.find(columns, name)]; }

    platform::ColumnFinder& finder;
    const std::vector<std::string>& columns;
    const std::vector<platform::Value>& values;
};

// A null leaves the record's field empty; only the key column is read without that test.

void read(Row& row, UserRecord& user)
{
    user.IDUserName = row.Fields("IDUserName").integer();
    user.UserName = row.Fields("UserName").text();
    user.Password = row.Fields("Password").text();
    user.IMClientInUse = row.Fields("IMClientInUse").text();
    user.FirstName = row.Fields("FirstName").text();
    user.LastName = row.Fields("LastName").text();
    user.Email = row.Fields("Email").text();
    user.AccountActive = row.Fields("AccountActive").boolean();
    user.CreationTime = row.Fields("CreationTime").date();
    user.Phone = row.Fields("Phone").text();
    user.Fax = row.Fields("Fax").text();
    user.HomePage = row.Fields("HomePage").text();
    user.Country = row.Fields("Country").text();
}

void read(Row& row, BuddyRecord& buddy)
{
    buddy.IDBuddies = row.Fields("IDBuddies").integer();
    buddy.Buddy = row.Fields("Buddy").text();
    buddy.key = row.Fields("key").text();
    buddy.Comment = row.Fields("Comment").text();
    buddy.Group = row.Fields("Group").text();
    buddy.CreationTime = row.Fields("CreationTime").date();
    buddy.UserName = row.Fields("UserName").text();
}

void read(Row& row, RoomRecord& room)
{
    room.IDRoom = row.Fields("IDRoom").integer();
    room.RoomName = row.Fields("RoomName").text();
    room.CreationTime = row.Fields("CreationTime").date();
    room.key = row.Fields("key").text();
    room.UserName_Owner = row.Fields("UserName_Owner").text();
}

const std::vector<std::size_t>& list_in(
    const std::unordered_map<std::string_view, std::vector<std::size_t>>& index, std::string_view name)
{
    static const std::vector<std::size_t> kNone;
    const auto found = name.empty() ? index.end() : index.find(name);
    return found == index.end() ? kNone : found->second;
}

} // namespace

Directory::Directory(Database& database, const Counters& counters, Journal& journal)
    : database_(database), counters_(counters), journal_(journal)
{
}

void Directory::SetUsers()
{
    load(users_,
        {"SetUsers", tables::kUsers, statements::kSelectUsers, &Counters::users, &Directory::index_users});
}

void Directory::load_users_once()
{
    if (!users_.loaded_before) {
        SetUsers();
    }
}

std::optional<std::uint64_t> Directory::refresh_users()
{
    if (!attempt([&] { database_.connection().change_mark(tables::kUsers); })) {
        return std::nullopt;
    }
    SetUsers();
    return users_.loaded_mark;
}

void Directory::SetMyBuddies()
{
    load(buddies_,
        {"SetMyBuddies", tables::kBuddies, statements::kSelectBuddies, &Counters::buddies,
            &Directory::index_buddies});
}

void Directory::SetRooms()
{
    load(rooms_,
        {"SetRooms", tables::kRooms, statements::kSelectRooms, &Counters::rooms, &Directory::index_rooms});
}

template <typename Record> void Directory::load(Snapshot<Record>& snapshot, const Source& source)
{
    // Taken before the rows are read: a change that comes in between makes the next load read again. Where
    // there is no mark (a closed connection), the load goes on and reports what is wrong.
    std::optional<std::uint64_t> mark;
    attempt([&] { mark = database_.connection().change_mark(source.table); });
    if (mark && mark == snapshot.loaded_mark) {
        return;
    }
    snapshot.loaded_before = true;
    snapshot.loaded_mark.reset();
    guarded(journal_, source.loader, no_address, [&] {
        // Counted a second time: the first count only tells an empty table.
        auto count = (counters_.*source.count)();
        if (count.value_or(0) >= 1) {
            count = (counters_.*source.count)();
        }
        const Indexing indexing{*this, source.index};
        snapshot.records.assign(static_cast<std::size_t>((std::max)(count.value_or(0), 1)), {});
        if (count.value_or(0) >= 1) {
            read_rows(snapshot, source);
        }
        if (count) {
            snapshot.loaded_mark = mark;
        }
    });
}

template <typename Record> void Directory::read_rows(Snapshot<Record>& snapshot, const Source& source)
{
    platform::ColumnFinder finder;
    auto record = snapshot.records.begin();
    database_.connection().visit(platform::fill(source.rows, {}),
        [&](const std::vector<std::string>& columns, std::vector<platform::Value>& values) {
            if (record == snapshot.records.end()) { // the table grew between the count and the query
                throw runtime_error(RuntimeError::SubscriptOutOfRange);
            }
            Row row{finder, columns, values};
            read(row, *record++);
        });
}

void Directory::index_users()
{
    user_by_name_.clear();
    user_by_lower_name_.clear();
    user_by_name_.reserve(users().size());
    user_by_lower_name_.reserve(users().size());
    for (std::size_t i = 0; i < users().size(); ++i) {
        user_by_name_.emplace(users()[i].UserName, i); // emplace keeps the first
        user_by_lower_name_.emplace(lower(users()[i].UserName), i);
    }
}

void Directory::index_buddies()
{
    buddies_by_owner_.clear();
    buddies_by_buddy_.clear();
    for (std::size_t i = 0; i < buddies().size(); ++i) {
        buddies_by_owner_[buddies()[i].UserName].push_back(i);
        buddies_by_buddy_[buddies()[i].Buddy].push_back(i);
    }
}

void Directory::index_rooms()
{
    room_by_name_.clear();
    for (std::size_t i = 0; i < rooms().size(); ++i) {
        room_by_name_.emplace(rooms()[i].RoomName, i);
    }
}

const UserRecord* Directory::user_named(std::string_view name) const
{
    const auto found = name.empty() ? user_by_name_.end() : user_by_name_.find(name);
    return found == user_by_name_.end() ? nullptr : &users()[found->second];
}

const UserRecord* Directory::user_named_in_any_case(std::string_view name) const
{
    const auto found = name.empty() ? user_by_lower_name_.end() : user_by_lower_name_.find(lower(name));
    return found == user_by_lower_name_.end() ? nullptr : &users()[found->second];
}

const RoomRecord* Directory::room_named(std::string_view name) const
{
    const auto found = name.empty() ? room_by_name_.end() : room_by_name_.find(name);
    return found == room_by_name_.end() ? nullptr : &rooms()[found->second];
}

const std::vector<std::size_t>& Directory::list_of(std::string_view owner) const
{
    return list_in(buddies_by_owner_, owner);
}

const std::vector<std::size_t>& Directory::entries_listing(std::string_view buddy) const
{
    return list_in(buddies_by_buddy_, buddy);
}

std::vector<std::string> Directory::ListAllUsers_web() const
{
    std::vector<std::string> names;
    guarded(journal_, "ListAllUsers_web", no_address, [&] {
        auto rows = database_.open(statements::kSelectUserNames);
        for (; !rows.AtEnd(); rows.MoveNext()) {
            names.push_back(rows.Fields("UserName").text());
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
        [&] { return database_.open(statements::kSelectUserNames).RecordCount(); });
}

} // namespace qz::store
