// The in-memory copies of `users`, `buddies` and `rooms`, from which most questions are answered.
#pragma once

#include "base/Journal.h"
#include "store/Counters.h"
#include "store/Database.h"
#include "store/Records.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qz::store {

/// Each copy is sized to the count of its table, and holds one empty record when the table is empty. It is
/// rebuilt whole by its loader, never patched; a loader that finds its table unchanged since its last load
/// keeps the copy. Look-ups give the first match in the order of the records, from an index. Records and what
/// is returned from them stay valid until the next load of the same copy.
class Directory {
public:
    Directory(Database& database, const Counters& counters, Journal& journal);

    /// Loaders. A failure is reported under the loader's name and leaves what was read so far.
    void SetUsers();
    void SetMyBuddies();
    void SetRooms();

    /// SetUsers, unless users were loaded before: an engine that is not started answers about accounts, too.
    void load_users_once();

    /// SetUsers, where the table can be asked and has changed.
    /// @return the mark of the copy: as long as it is the same, so are the users. Nothing while the copy may
    /// lack some of them.
    std::optional<std::uint64_t> refresh_users();

    /// In order of name; buddies in order of owner, then buddy.
    const std::vector<UserRecord>& users() const { return users_.records; }
    const std::vector<BuddyRecord>& buddies() const { return buddies_.records; }
    const std::vector<RoomRecord>& rooms() const { return rooms_.records; }

    /// First record of exactly this name; none for the empty name.
    const UserRecord* user_named(std::string_view name) const;
    /// First record whose name has the same lower-case form.
    const UserRecord* user_named_in_any_case(std::string_view name) const;
    const RoomRecord* room_named(std::string_view name) const;
    /// Indexes into buddies(), ascending: the list of one owner, and every entry that lists one buddy.
    const std::vector<std::size_t>& list_of(std::string_view owner) const;
    const std::vector<std::size_t>& entries_listing(std::string_view buddy) const;

    /// Kept for the interface: its only work, a copy of the names that nobody saw, is not done any more.
    void ListAllUsers() const { }
    /// All user names, sorted, from the database; one empty text when there are none.
    std::vector<std::string> ListAllUsers_web() const;
    std::int32_t ListAllUsersCount_web() const;

private:
    using Index = std::unordered_map<std::string_view, std::size_t>;
    using ListIndex = std::unordered_map<std::string_view, std::vector<std::size_t>>;

    template <typename Record> struct Snapshot {
        std::vector<Record> records{1};
        std::optional<std::uint64_t> loaded_mark; // the table's change mark when it was loaded
        bool loaded_before = false;
    };
    struct Source {
        std::string_view loader;
        const platform::Table& table;
        const platform::Statement& rows;
        std::optional<std::int32_t> (Counters::*count)() const;
        void (Directory::*index)();
    };
    /// Indexes a copy on every way out of its load, before a failure is reported: whoever hears of it may ask
    /// the directory.
    struct Indexing {
        Directory& directory;
        void (Directory::*index)();
        ~Indexing() { (directory.*index)(); }
    };

    template <typename Record> void load(Snapshot<Record>& snapshot, const Source& source);
    template <typename Record> void read_rows(Snapshot<Record>& snapshot, const Source& source);
    void index_users();
    void index_buddies();
    void index_rooms();

    Database& database_;
    const Counters& counters_;
    Journal& journal_;
    Snapshot<UserRecord> users_;
    Snapshot<BuddyRecord> buddies_;
    Snapshot<RoomRecord> rooms_;

    // Keys point into the records' texts, but for the lower-case forms, which are kept beside them.
    Index user_by_name_;
    std::unordered_map<std::string, std::size_t> user_by_lower_name_;
    Index room_by_name_;
    ListIndex buddies_by_owner_;
    ListIndex buddies_by_buddy_;
};

} // namespace qz::store
