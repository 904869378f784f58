// The in-memory copies of `users`, `buddies` and `rooms`, from which most questions are answered.
#pragma once

#include "base/Journal.h"
#include "store/Counters.h"
#include "store/Database.h"
#include "store/Records.h"
#include "store/Snapshot.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qz::store {

/// Each copy holds the rows of its table, and one empty record when the table is empty. After a load it is
/// what the loader's query gives, in the order of RecordOrder. A loader that finds its table unchanged since
/// its last load keeps the copy; after changes by this engine alone it reads the rows concerned; otherwise
/// everything. Look-ups give the first match in the order of the records, at a cost that does not grow with
/// the tables. Records and what is returned from them stay valid until the next load of the same copy.
class Directory {
public:
    template <typename Record> using Records = std::set<Record, RecordOrder>;
    using Change = std::function<void()>;

    Directory(Database& database, const Counters& counters, Journal& journal);

    /// Loaders. A failure is reported under the loader's name. When the table cannot be counted, or its query
    /// fails before the first row, the copy stays as it is; later it is left with what was read so far.
    void SetUsers();
    void SetMyBuddies();
    void SetRooms();

    /// SetUsers, unless users were loaded before: an engine that is not started answers about accounts, too.
    void load_users_once();

    /// SetUsers, where the table can be asked and has changed.
    /// @return the mark of the copy: as long as it is the same, so are the users. Nothing while the copy may
    /// lack some of them.
    std::optional<std::uint64_t> refresh_users();

    // Changes of the tables by this engine go through these: `change` runs the statement, and the next load
    // reads only the rows concerned. What else the engine changes makes it read everything. Names are given
    // as they stand in statements, between single quotes. What `change` throws is passed on.
    void add_user(std::string_view name, const Change& change);
    void change_user(std::string_view name, const Change& change);
    void add_buddy(std::string_view owner, std::string_view buddy, const Change& change);
    /// @param change  changes or deletes all entries of the pair; it is not run when there are none.
    void change_buddy(std::string_view owner, std::string_view buddy, const Change& change);
    void add_room(std::string_view name, const Change& change);
    /// @param row  names and key of the one row that `change` deletes.
    void remove_row(const BuddyRecord& row, const Change& change);
    void remove_row(const RoomRecord& row, const Change& change);

    const Records<UserRecord>& users() const { return users_.records; }
    const Records<BuddyRecord>& buddies() const { return buddies_.records; }
    const Records<RoomRecord>& rooms() const { return rooms_.records; }

    /// First record of exactly this name; none for the empty name.
    const UserRecord* user_named(std::string_view name) const;
    /// First record whose name has the same lower-case form.
    const UserRecord* user_named_in_any_case(std::string_view name) const;
    const RoomRecord* room_named(std::string_view name) const;
    /// Whether a room has this name in any letter case.
    bool has_room_in_any_case(std::string_view name) const;
    /// Number of rooms whose owner is exactly this.
    std::size_t count_rooms_of(std::string_view owner) const;
    /// First entry of exactly these names; none for the empty owner.
    const BuddyRecord* buddy_named(std::string_view owner, std::string_view buddy) const;
    /// In the order of the copy: the list of one owner, and every entry that lists one buddy.
    std::vector<const BuddyRecord*> list_of(std::string_view owner) const;
    const std::vector<const BuddyRecord*>& entries_listing(std::string_view buddy) const;
    /// Changes whenever pointers to users become invalid or one of their names is another one.
    std::uint64_t version_of_names() const { return version_of_names_; }

    /// Kept for the interface: its only work, a copy of the names that nobody saw, is not done any more.
    void ListAllUsers() const { }
    /// All user names, sorted, from the database; one empty text when there are none.
    std::vector<std::string> ListAllUsers_web() const;
    std::int32_t ListAllUsersCount_web() const;

private:
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
    };
    template <typename Value> using Index = std::unordered_map<std::string, Value, TextHash, std::equal_to<>>;

    struct Source {
        std::string_view loader;
        const platform::Table& table;
        const platform::Statement& rows;
        std::optional<std::int32_t> (Counters::*count)() const;
    };
    /// While a copy follows the engine's own changes.
    struct Following {
        int missing = 0;                    // rows that were added and not found yet
        std::set<std::int32_t> taken_out{}; // keys; such a row may come back
    };
    template <typename Record> void load(Snapshot<Record>& snapshot, const Source& source);
    template <typename Record> bool load_all(Snapshot<Record>& snapshot, const Source& source);
    template <typename Record> bool follow(Snapshot<Record>& snapshot);
    template <typename Record> void put(Snapshot<Record>& snapshot, Record record, Following& following);
    template <typename Record>
    void remove(Snapshot<Record>& snapshot, const Record& record, Following& following);
    template <typename Record> void keep_one(Snapshot<Record>& snapshot);
    template <typename Record>
    void run(Snapshot<Record>& snapshot, const platform::Table& table, const Change& change,
        OwnChange<Record> note);
    std::optional<TableMark> mark_of(const platform::Table& table);
    void visit(
        const Snapshot<UserRecord>& users, const RowsOfName& rows, const platform::RowVisitor& visitor);
    void visit(
        const Snapshot<BuddyRecord>& buddies, const RowsOfName& rows, const platform::RowVisitor& visitor);
    void visit(
        const Snapshot<RoomRecord>& rooms, const RowsOfName& rows, const platform::RowVisitor& visitor);

    // The indexes of the copies.
    void clear_indexes(const Snapshot<UserRecord>& /*users*/);
    void clear_indexes(const Snapshot<BuddyRecord>& /*buddies*/);
    void clear_indexes(const Snapshot<RoomRecord>& /*rooms*/);
    void enter(const UserRecord& user);
    void enter(const BuddyRecord& entry);
    void enter(const RoomRecord& room);
    void leave(const UserRecord& user);
    void leave(const BuddyRecord& entry);
    void leave(const RoomRecord& room);

    Database& database_;
    const Counters& counters_;
    Journal& journal_;
    Snapshot<UserRecord> users_;
    Snapshot<BuddyRecord> buddies_;
    Snapshot<RoomRecord> rooms_;

    Index<const UserRecord*> user_by_name_;
    Index<const UserRecord*> user_by_lower_name_;
    Index<std::vector<const BuddyRecord*>> entries_by_buddy_;
    Index<std::size_t> rooms_of_owner_; // how many
    Index<std::size_t> rooms_of_lower_name_;
    std::uint64_t version_of_names_ = 0;
};

} // namespace qz::store
