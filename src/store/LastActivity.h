// What the activity log tells about how long a user has been away.
#pragma once

#include "base/Journal.h"
#include "store/Database.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qz::store {

struct InactiveUser {
    std::string UserName;
    std::int32_t DaysAgo = 0; // age of the oldest row that the log still has of the user
};

/// User names go into the statements as they stand.
class LastActivity {
public:
    LastActivity(Database& database, Journal& journal) : database_(database), journal_(journal) { }

    /// Accounts whose oldest log row is that old or older: most inactive first, equal ones by name. It is the
    /// oldest row that counts, not the newest: the log is trimmed by its own setting.
    /// @return nothing when the query failed, which has then been reported.
    std::optional<std::vector<InactiveUser>> Retrieve_LastActivity(std::int32_t minimum_days);
    /// Time of the newest log row of an account as text; empty when it has none.
    std::string RetrieveLastActivity(const std::string& user_name);
    /// Gives each account without a log row its first one, so that who never logged on is counted from now.
    void SetLastActivity();
    /// Whether the enabled account logged on successfully within the last days.
    bool HadUserLoggedBeforeExpirationTime(const std::string& user_name, std::int32_t days);

private:
    Database& database_;
    Journal& journal_;
};

} // namespace qz::store
