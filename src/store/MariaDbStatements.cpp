// What MariaDB runs in its own words.
#include "store/Overrides.h"

#include <array>

namespace qz::store {

using platform::StatementOverride;
using namespace statements;

platform::StatementOverrides mariadb_overrides()
{
    static constexpr std::array kOverrides{
        StatementOverride{&kDeleteOldLog, "DELETE FROM log WHERE DATEDIFF(CURDATE(), actiontime) >= ?"},
        StatementOverride{&kSelectOldestLogRow,
            "SELECT DATEDIFF(CURDATE(), actiontime) AS daysago, idlog FROM log ORDER BY idlog LIMIT 1"},
        StatementOverride{&kDeleteFirstOldLogRows,
            "DELETE FROM log WHERE idlog < ? AND DATEDIFF(CURDATE(), actiontime) >= ?"},
        StatementOverride{&kSelectInactiveUsers,
            "SELECT DATEDIFF(CURDATE(), oldest.actiontime) AS daysago, oldest.username FROM (SELECT "
            "users.username, (SELECT MIN(log.actiontime) FROM log WHERE log.username = users.username) "
            "AS actiontime FROM users) AS oldest WHERE DATEDIFF(CURDATE(), oldest.actiontime) >= ? ORDER "
            "BY daysago DESC, oldest.username"},
        StatementOverride{&kSelectRecentLogOn,
            "SELECT DISTINCT DATEDIFF(CURDATE(), log.actiontime) AS daysago, log.username FROM log, "
            "users WHERE users.accountactive = 1 AND DATEDIFF(CURDATE(), log.actiontime) <= ? AND "
            "log.username = users.username AND log.username = ? AND instr(log.action, 'LogOn "
            "successfully') > 0 ORDER BY daysago LIMIT 1"}};
    return kOverrides;
}

} // namespace qz::store
