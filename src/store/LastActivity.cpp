#include "store/LastActivity.h"

#include "base/Guarded.h"
#include "store/Statements.h"

namespace qz::store {

std::optional<std::vector<InactiveUser>> LastActivity::Retrieve_LastActivity(std::int32_t minimum_days)
{
    using Result = std::optional<std::vector<InactiveUser>>;
    return guarded(journal_, "Retrieve_LastActivity", no_address, Result{}, [&] {
        std::vector<InactiveUser> users;
        for (const auto& row : database_.query(statements::kSelectInactiveUsers, minimum_days)) {
            users.push_back({row["UserName"].text(), row["DaysAgo"].integer()});
        }
        return Result(std::move(users));
    });
}

std::string LastActivity::RetrieveLastActivity(const std::string& user_name)
{
    return guarded(journal_, "RetrieveLastActivity", no_address, std::string{}, [&] {
        const auto rows = database_.query(statements::kSelectLastActivity, Quoted{user_name});
        return rows.empty() ? std::string{} : rows.front()["LastOfActionTime"].text();
    });
}

void LastActivity::SetLastActivity()
{
    guarded(journal_, "SetLastActivity", no_address, [&] {
        for (const auto& row : database_.query(statements::kSelectUserNamesForActivity)) {
            const auto name = row["UserName"].text();
            if (RetrieveLastActivity(name).empty()) {
                // As user and as address: the log crosses the two, and the queries look for the user.
                journal_.Log("Virtual connection for " + name, name, name);
            }
            database_.require_open();
        }
    });
}

bool LastActivity::HadUserLoggedBeforeExpirationTime(const std::string& user_name, std::int32_t days)
{
    return guarded(journal_, "HadUserLoggedBeforeExpirationTime", no_address, false,
        [&] { return !database_.query(statements::kSelectRecentLogOn, days, Quoted{user_name}).empty(); });
}

} // namespace qz::store
