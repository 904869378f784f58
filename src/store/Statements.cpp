#include "store/Statements.h"

#include <array>

namespace qz::store {

std::span<const platform::Statement> all_statements()
{
    using namespace statements;
    static constexpr std::array kAll{kSelectUsers, kSelectUser, kSelectUserForDetails, kSelectPassword,
        kSelectPasswordForSetting, kSelectPlainPasswords, kInsertUser, kSelectUserNames,
        kSelectUserNamesForActivity, kSelectClientVersions, kSelectClientInUse, kCountUsers, kProbe,
        kSelectBuddies, kCountBuddies, kCountBuddyEntries, kSelectDuplicatedBuddies, kSelectBuddyEntries,
        kSelectNewBuddyEntries, kDeleteBuddy, kInsertBuddy, kUpdateBuddy, kSelectBuddyKey, kSelectRooms,
        kSelectRoomsForAdding, kSelectOwnedRoom, kSelectNewRooms, kCountRooms, kSelectMessagesForAdding,
        kSelectMessage, kFindMessage, kSelectLastMessage, kSelectMsgIDs, kSelectMessagesByMsgID,
        kSelectMessagesOfRecipient, kSelectQueue, kSelectQueueTexts, kFindQueueRow, kUpdateQueueSent,
        kDeleteQueueRow, kSelectQueueCount, kInsertLogRow, kDeleteOldLog, kSelectOldestLogRow,
        kDeleteFirstOldLogRows, kSelectLogLines, kSelectLogTimes, kSelectLastActivity, kSelectInactiveUsers,
        kSelectRecentLogOn, kSelectCommands, kInsertCommand, kDeleteCommand, kDeleteAllCommands,
        kSelectAutoReply, kSelectAutoReplyEnabled, kSelectAutoReplyMessage, kSelectLastLogOn,
        kSelectLastLogOnsForAdding, kSelectAccountsWithLastLogOn};
    return kAll;
}

} // namespace qz::store
