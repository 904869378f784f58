// When each user last logged on: the table `lastlogon`, kept where the safeguard InactivityByLastLogon is on.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Deployment.h"
#include "store/Database.h"

#include <optional>
#include <string>
#include <vector>

namespace qz::store {

struct AccountUse {
    std::string UserName;
    bool AccountActive = false;
    DateTime LogOnTime; // empty when none is known
};

class LastLogOns {
public:
    LastLogOns(Database& database, const config::Deployment& deployment, const Clock& clock, Journal& journal)
        : database_(database), deployment_(deployment), clock_(clock), journal_(journal)
    {
    }

    /// A user has logged on just now. Without the safeguard nothing is written.
    void logged_on(const std::string& user_name);
    /// Writes a row of now for an account that has none.
    void begin_counting(const std::string& user_name);
    /// Nothing for a user without a row.
    std::optional<DateTime> last_log_on(const std::string& user_name);
    /// All accounts in the order of their names; nothing when that failed, which has been reported then.
    std::optional<std::vector<AccountUse>> accounts();

private:
    Rows row_of(const std::string& user_name);
    void write(const std::string& user_name);

    Database& database_;
    const config::Deployment& deployment_;
    const Clock& clock_;
    Journal& journal_;
};

} // namespace qz::store
