// The order of the records in memory: by name, for buddies by owner and buddy, then by key.
#pragma once

#include "store/Records.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>

namespace qz::store {

/// What a record is ordered by; it points into the record.
struct RecordKey {
    std::string_view name;
    std::string_view second; // empty but for buddies
    std::int32_t id = 0;
};

inline RecordKey key_of(const UserRecord& user)
{
    return {user.UserName, {}, user.IDUserName};
}
inline RecordKey key_of(const BuddyRecord& buddy)
{
    return {buddy.UserName, buddy.Buddy, buddy.IDBuddies};
}
inline RecordKey key_of(const RoomRecord& room)
{
    return {room.RoomName, {}, room.IDRoom};
}

/// Searches for all records of a name, or of a pair of names.
struct NameToFind {
    std::string_view name;
    std::optional<std::string_view> second = {};
};

/// Compares as the embedded database does: letters of ASCII without their case, everything else by bytes. The
/// order is the same whichever database is connected, so that a row can be put in its place without asking.
/// @return negative, 0, positive.
inline int compare_names(std::string_view left, std::string_view right)
{
    const auto folded = [](char c) {
        return static_cast<int>(
            static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c));
    };
    const auto shared = (std::min)(left.size(), right.size());
    for (std::size_t i = 0; i < shared; ++i) {
        if (left[i] != right[i] && folded(left[i]) != folded(right[i])) {
            return folded(left[i]) - folded(right[i]);
        }
    }
    return left.size() == right.size() ? 0 : left.size() < right.size() ? -1 : 1;
}

struct RecordOrder {
    using is_transparent = void;

    template <typename Record> bool operator()(const Record& left, const Record& right) const
    {
        return is_before(key_of(left), key_of(right));
    }
    template <typename Record> bool operator()(const Record& record, const NameToFind& wanted) const
    {
        return compare(key_of(record), wanted) < 0;
    }
    template <typename Record> bool operator()(const NameToFind& wanted, const Record& record) const
    {
        return compare(key_of(record), wanted) > 0;
    }

private:
    static bool is_before(const RecordKey& left, const RecordKey& right)
    {
        if (const auto names = compare_names(left.name, right.name); names != 0) {
            return names < 0;
        }
        const auto seconds = compare_names(left.second, right.second);
        return seconds != 0 ? seconds < 0 : left.id < right.id;
    }
    static int compare(const RecordKey& key, const NameToFind& wanted)
    {
        const auto names = compare_names(key.name, wanted.name);
        return names != 0 || !wanted.second ? names : compare_names(key.second, *wanted.second);
    }
};

} // namespace qz::store
