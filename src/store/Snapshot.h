// The copy of one table in memory, and what is known of its currency.
#pragma once

#include "store/RecordOrder.h"

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace qz::store {

/// The state of a table when it was looked at.
struct TableMark {
    std::uint64_t total = 0; // see Connection::change_mark
    std::uint64_t own = 0;   // see Connection::own_changes
    std::uint64_t of_others() const { return total - own; }
};

/// The rows of a name, for buddies of a pair of names; both are joined into statements as they are.
struct RowsOfName {
    std::string name;
    std::string second{};                // empty but for buddies
    std::optional<std::int32_t> after{}; // only rows with greater keys
    auto operator<=>(const RowsOfName&) const = default;
};

/// What has to be done to the copy after a change by the engine itself.
template <typename Record> struct OwnChange {
    std::optional<RowsOfName> to_read{};
    std::vector<Record> removed{}; // rows that are gone, or are read again
    int added = 0;                 // rows
};

template <typename Record> struct Snapshot {
    std::set<Record, RecordOrder> records{Record{}}; // one empty record when the table is empty
    std::int32_t last_key = 0;                       // the greatest that the copy has had
    bool loaded_before = false;
    /// The copy with the changes below is the table in this state; none when it has to be loaded whole. Of
    /// `own` it tells how many are in the copy or below.
    std::optional<TableMark> mark;
    // The engine's own changes that are not in the copy yet.
    std::set<RowsOfName> to_read;
    std::vector<Record> removed; // rows that are gone, or are read again
    int added = 0;               // rows

    /// Nobody but the engine has changed the table since the copy was loaded, and all that it did is noted.
    bool is_known(const TableMark& now) const
    {
        return mark && mark->of_others() == now.of_others() && mark->own == now.own;
    }
    /// The engine has changed the table.
    /// @param before, after  its own changes of the table.
    void note(std::uint64_t before, std::uint64_t after, OwnChange<Record> change)
    {
        if (!mark || mark->own != before || before == after) {
            return; // nothing happened, or more than is known here
        }
        mark->total += after - before;
        mark->own = after;
        if (change.to_read) {
            to_read.insert(*std::move(change.to_read));
        }
        std::move(change.removed.begin(), change.removed.end(), std::back_inserter(removed));
        added += change.added;
        // To read rows one by one costs several times as much as to read them all.
        constexpr std::size_t always = 16;
        if (to_read.size() > (std::max)(always, records.size() / 8)) {
            forget();
        }
    }
    bool has_changes() const { return !to_read.empty() || !removed.empty(); }
    void clear_changes()
    {
        to_read.clear();
        removed.clear();
        added = 0;
    }
    /// The next load reads everything.
    void forget()
    {
        mark.reset();
        clear_changes();
    }

    /// Of no row: the one record stands for an empty table.
    bool is_empty() const
    {
        return records.size() == 1 && key_of(*records.begin()).id == 0
            && key_of(*records.begin()).name.empty();
    }
};

} // namespace qz::store
