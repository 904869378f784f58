#include "store/LastActivity.h"

#include "base/Guarded.h"
#include "store/Statements.h"

namespace qz::store {

std::optional<std::vector<InactiveUser>> LastActivity::Retrieve_LastActivity(std::int32_t minimum_days)
{
    using Result = std::optional<std::vector<InactiveUser>>;
    return guarded(journal_, "Retrieve_LastActivity", no_address, Result{}, [&] {
        std::vector<InactiveUser> users;
        auto rows = database_.open(statements::kSelectInactiveUsers, {std::to_string(minimum_days)});
        for (; !rows.AtEnd(); rows.MoveNext()) {
            users.push_back({rows.Fields("UserName").text(), rows.Fields("DaysAgo").integer()});
        }
        return Result(std::move(users));
    });
}

std::string LastActivity::RetrieveLastActivity(const std::string& user_name)
{
    return guarded(journal_, "RetrieveLastActivity", no_address, std::string{}, [&] {
        auto row = database_.open(statements::kSelectLastActivity, {user_name});
        return row.AtEnd() ? std::string{} : row.Fields("LastOfActionTime").text();
    });
}

void LastActivity::SetLastActivity()
{
    guarded(journal_, "SetLastActivity", no_address, [&] {
        auto rows = database_.open(statements::kSelectUserNamesForActivity);
        for (; !rows.AtEnd(); rows.MoveNext()) {
            const auto name = rows.Fields("UserName").text();
            if (RetrieveLastActivity(name).empty()) {
                // As user and as address: the log crosses the two, and the queries look for the user.
                journal_.Log("Virtual connection for " + name, name, name);
            }
        }
    });
}

bool LastActivity::HadUserLoggedBeforeExpirationTime(const std::string& user_name, std::int32_t days)
{
    return guarded(journal_, "HadUserLoggedBeforeExpirationTime", no_address, false, [&] {
        return !database_.open(statements::kSelectRecentLogOn, {std::to_string(days), user_name}).AtEnd();
    });
}

} // namespace qz::store
