// What SQLite runs in its own words: DateDiff, Today and a faster instr are functions that its connection
// brings along.
#include "store/Overrides.h"

#include <array>

namespace qz::store {

using platform::StatementOverride;
using namespace statements;

platform::StatementOverrides sqlite_overrides()
{
    static constexpr std::array kOverrides{
        StatementOverride{&kSelectMessage,
            "SELECT messages.* FROM messagenumbers INNER JOIN messages ON messages.idmessage = "
            "messagenumbers.idmessage AND messages.msgid = messagenumbers.msgid WHERE "
            "messages.username_from = ? AND messages.username_to = ? AND messagenumbers.msgid = ? ORDER "
            "BY messages.idmessage DESC",
            3},
        StatementOverride{&kFindMessage,
            "SELECT messages.idmessage FROM messagenumbers INNER JOIN messages ON messages.idmessage = "
            "messagenumbers.idmessage AND messages.msgid = messagenumbers.msgid WHERE "
            "messages.username_from = ? AND messages.username_to = ? AND messagenumbers.msgid = ?",
            3},
        StatementOverride{&kSelectMessagesByMsgID,
            "SELECT messages.* FROM messagenumbers INNER JOIN messages ON messages.idmessage = "
            "messagenumbers.idmessage AND messages.msgid = messagenumbers.msgid WHERE "
            "messagenumbers.msgid = ? ORDER BY messages.idmessage",
            1},
        StatementOverride{&kSelectMessagesOfRecipient,
            "SELECT messages.* FROM messagenumbers INNER JOIN messages ON messages.idmessage = "
            "messagenumbers.idmessage AND messages.msgid = messagenumbers.msgid WHERE "
            "messagenumbers.msgid = ? AND messages.username_to = ?",
            1},
        StatementOverride{&kDeleteOldLog, "DELETE FROM log WHERE DateDiff('d', actiontime, Today()) >= ?"},
        StatementOverride{&kSelectOldestLogRow,
            "SELECT DateDiff('d', actiontime, Today()) AS daysago, idlog FROM log ORDER BY idlog LIMIT 1"},
        StatementOverride{&kDeleteFirstOldLogRows,
            "DELETE FROM log WHERE idlog < ? AND DateDiff('d', actiontime, Today()) >= ?"},
        StatementOverride{&kSelectLastActivity,
            "SELECT useractivity.lasttime AS lastofactiontime FROM useractivity INNER JOIN users ON "
            "useractivity.username = users.username WHERE useractivity.username = ?",
            0, true},
        StatementOverride{&kSelectInactiveUsers,
            "SELECT DateDiff('d', useractivity.firsttime, Today()) AS daysago, users.username FROM users "
            "INNER JOIN useractivity ON users.username = useractivity.username WHERE DateDiff('d', "
            "useractivity.firsttime, Today()) >= ? ORDER BY daysago DESC, users.username",
            0, true},
        StatementOverride{&kSelectRecentLogOn,
            "SELECT DISTINCT DateDiff('d', log.actiontime, Today()) AS daysago, log.username FROM log, "
            "users WHERE users.accountactive = 1 AND DateDiff('d', log.actiontime, Today()) <= ? AND "
            "log.username = users.username AND log.username = ? AND instr(log.action, 'LogOn "
            "successfully') > 0 ORDER BY daysago LIMIT 1"}};
    return kOverrides;
}

} // namespace qz::store
