// How many rows a table has.
#pragma once

#include "base/Journal.h"
#include "store/Database.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace qz::store {

class Counters {
public:
    Counters(Database& database, Journal& journal) : database_(database), journal_(journal) { }

    /// Number of accounts; the name is the interface's own. 0 when the query fails.
    std::int32_t get_BuddiesCount() const { return users().value_or(0); }
    /// Number of rooms, and of entries in all buddy lists. 0 when the query fails.
    std::int32_t get_CountOfRooms() const { return rooms().value_or(0); }
    std::int32_t get_CountOfBuddies() const { return buddies().value_or(0); }

    /// The same counts; nothing when the query failed, which has then been reported.
    std::optional<std::int32_t> users() const;
    std::optional<std::int32_t> rooms() const;
    std::optional<std::int32_t> buddies() const;

private:
    std::optional<std::int32_t> count(
        std::string_view routine, const platform::Statement& statement, std::string_view field) const;

    Database& database_;
    Journal& journal_;
};

} // namespace qz::store
