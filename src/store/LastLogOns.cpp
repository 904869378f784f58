#include "store/LastLogOns.h"

#include "base/Guarded.h"
#include "store/Statements.h"

namespace qz::store {

void LastLogOns::logged_on(const std::string& user_name)
{
    if (deployment_.inactivity_by_last_logon()) {
        begin_counting(user_name);
    }
}

void LastLogOns::begin_counting(const std::string& user_name)
{
    guarded(journal_, "LastLogOn", no_address, [&] { write(user_name); });
}

Rows LastLogOns::row_of(const std::string& user_name)
{
    return database_.query(statements::kSelectLastLogOn, user_name);
}

void LastLogOns::write(const std::string& user_name)
{
    const auto known = row_of(user_name);
    if (known.empty()) {
        database_.add(tables::kLastLogOn, {{"UserName", "LogOnTime"}, {user_name, clock_.now()}});
    } else {
        database_.update(tables::kLastLogOn, known.front().key(), {{"LogOnTime"}, {clock_.now()}});
    }
}

std::optional<DateTime> LastLogOns::last_log_on(const std::string& user_name)
{
    using Result = std::optional<DateTime>;
    return guarded(journal_, "LastLogOn", no_address, Result{}, [&] {
        const auto rows = row_of(user_name);
        return rows.empty() ? Result{} : Result(rows.front()["LogOnTime"].date());
    });
}

std::optional<std::vector<AccountUse>> LastLogOns::accounts()
{
    using Result = std::optional<std::vector<AccountUse>>;
    return guarded(journal_, "LastLogOns", no_address, Result{}, [&] {
        std::vector<AccountUse> accounts;
        for (const auto& row : database_.query(statements::kSelectAccountsWithLastLogOn)) {
            accounts.push_back(
                {row["UserName"].text(), row["AccountActive"].boolean(), row["LogOnTime"].date()});
        }
        return Result(std::move(accounts));
    });
}

} // namespace qz::store
