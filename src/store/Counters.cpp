#include "store/Counters.h"

#include "base/Guarded.h"
#include "store/Statements.h"

namespace qz::store {

std::optional<std::int32_t> Counters::users() const
{
    return count("get_BuddiesCount", statements::kCountUsers, "CountOfUsers");
}

std::optional<std::int32_t> Counters::rooms() const
{
    return count("get_CountOfRooms", statements::kCountRooms, "CountOfRooms");
}

std::optional<std::int32_t> Counters::buddies() const
{
    return count("get_CountOfBuddies", statements::kCountBuddies, "CountOfBuddy");
}

std::optional<std::int32_t> Counters::count(
    std::string_view routine, const platform::Statement& statement, std::string_view field) const
{
    return guarded(journal_, routine, no_address, std::optional<std::int32_t>{},
        [&] { return std::optional(database_.query(statement).front()[field].integer()); });
}

} // namespace qz::store
