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

platform::Recordset LastLogOns::row_of(const std::string& user_name)
{
    return database_.open(statements::kSelectLastLogOn, {replace_all(user_name, "'", "''")});
}

void LastLogOns::write(const std::string& user_name)
{
    auto known = row_of(user_name);
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

std::optional<DateTime> LastLogOns::last_log_on(const std::string& user_name)
{
    using Result = std::optional<DateTime>;
    return guarded(journal_, "LastLogOn", no_address, Result{}, [&] {
        auto row = row_of(user_name);
        return row.AtEnd() ? Result{} : Result(row.Fields("LogOnTime").date());
    });
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
