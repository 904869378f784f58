#include "store/LastLogOns.h"

#include "base/Guarded.h"
#include "base/Text.h"
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

void LastLogOns::write(const std::string& user_name)
{
    auto known = database_.open(statements::kSelectLastLogOn, {replace_all(user_name, "'", "''")});
    if (!known.AtEnd()) {
        known.SetField("LogOnTime", clock_.now());
        known.Update();
        return;
    }
    auto row = database_.open(statements::kSelectLastLogOnsForAdding);
    row.AddNew();
    row.SetField("UserName", user_name);
    row.SetField("LogOnTime", clock_.now());
    row.Update();
}

std::optional<std::vector<AccountUse>> LastLogOns::accounts()
{
    using Result = std::optional<std::vector<AccountUse>>;
    return guarded(journal_, "LastLogOns", no_address, Result{}, [&] {
        std::vector<AccountUse> accounts;
        auto rows = database_.open(statements::kSelectAccountsWithLastLogOn);
        for (; !rows.AtEnd(); rows.MoveNext()) {
            accounts.push_back({rows.Fields("UserName").text(), rows.Fields("AccountActive").boolean(),
                rows.Fields("LogOnTime").date()});
        }
        return Result(std::move(accounts));
    });
}

} // namespace qz::store
