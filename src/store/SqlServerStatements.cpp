// What SQL Server runs in its own words.
#include "store/Overrides.h"

#include <array>

namespace qz::store {

using platform::StatementOverride;
using namespace statements;

platform::StatementOverrides sql_server_overrides()
{
    static constexpr std::array kOverrides{
        StatementOverride{
            &kDeleteOldLog, "DELETE FROM log WHERE DATEDIFF(day, actiontime, CAST(GETDATE() AS date)) >= ?"},
        StatementOverride{&kSelectOldestLogRow,
            "SELECT TOP (1) DATEDIFF(day, actiontime, CAST(GETDATE() AS date)) AS daysago, idlog FROM "
            "log ORDER BY idlog"},
        StatementOverride{&kDeleteFirstOldLogRows,
            "DELETE FROM log WHERE idlog < ? AND DATEDIFF(day, actiontime, CAST(GETDATE() AS date)) >= ?"},
        StatementOverride{&kSelectInactiveUsers,
            "SELECT DATEDIFF(day, oldest.actiontime, CAST(GETDATE() AS date)) AS daysago, "
            "oldest.username FROM (SELECT users.username, (SELECT MIN(log.actiontime) FROM log WHERE "
            "log.username = users.username) AS actiontime FROM users) AS oldest WHERE DATEDIFF(day, "
            "oldest.actiontime, CAST(GETDATE() AS date)) >= ? ORDER BY daysago DESC, oldest.username"},
        StatementOverride{&kSelectRecentLogOn,
            "SELECT DISTINCT TOP (1) DATEDIFF(day, log.actiontime, CAST(GETDATE() AS date)) AS daysago, "
            "log.username FROM log, users WHERE users.accountactive = 1 AND DATEDIFF(day, "
            "log.actiontime, CAST(GETDATE() AS date)) <= ? AND log.username = users.username AND "
            "log.username = ? AND CHARINDEX('LogOn successfully', log.action) > 0 ORDER BY daysago"},
        StatementOverride{&kSelectLogLines,
            "SELECT TOP (?) (CAST(actiontime AS char(20)) + '/' + username + '/' + remoteip + '/' + "
            "action) AS mylog FROM log ORDER BY idlog DESC"},
        StatementOverride{&kSelectLogTimes, "SELECT TOP (?) actiontime FROM log ORDER BY idlog DESC"}};
    return kOverrides;
}

} // namespace qz::store
