// What PostgreSQL runs in its own words. Positions are not found in a text whose collation ignores case.
#include "store/Overrides.h"

#include <array>

namespace qz::store {

using platform::StatementOverride;
using namespace statements;

platform::StatementOverrides postgresql_overrides()
{
    static constexpr std::array kOverrides{
        StatementOverride{
            &kDeleteOldLog, "DELETE FROM log WHERE (CURRENT_DATE - CAST(actiontime AS date)) >= ?"},
        StatementOverride{&kSelectOldestLogRow,
            "SELECT (CURRENT_DATE - CAST(actiontime AS date)) AS daysago, idlog FROM log ORDER BY idlog "
            "LIMIT 1"},
        StatementOverride{&kDeleteFirstOldLogRows,
            "DELETE FROM log WHERE idlog < ? AND (CURRENT_DATE - CAST(actiontime AS date)) >= ?"},
        StatementOverride{&kSelectInactiveUsers,
            "SELECT (CURRENT_DATE - CAST(oldest.actiontime AS date)) AS daysago, oldest.username FROM "
            "(SELECT users.username, (SELECT MIN(log.actiontime) FROM log WHERE log.username = "
            "users.username) AS actiontime FROM users) AS oldest WHERE (CURRENT_DATE - "
            "CAST(oldest.actiontime AS date)) >= ? ORDER BY daysago DESC, oldest.username"},
        StatementOverride{&kSelectRecentLogOn,
            "SELECT DISTINCT (CURRENT_DATE - CAST(log.actiontime AS date)) AS daysago, log.username FROM "
            "log, users WHERE users.accountactive = 1 AND (CURRENT_DATE - CAST(log.actiontime AS date)) "
            "<= ? AND log.username = users.username AND log.username = ? AND strpos(lower(log.action "
            "COLLATE \"C\"), lower('LogOn successfully')) > 0 ORDER BY daysago LIMIT 1"}};
    return kOverrides;
}

} // namespace qz::store
