// Every SQL text of the engine, once. The texts mix two dialects, letter cases and odd blanks on purpose:
// other programs compare them, so they are kept exactly. They are filled with platform::fill and run as they
// are.
#pragma once

#include "platform/database/Statement.h"

#include <span>

namespace qz::store {

/// The tables with the key that the database counts up.
namespace tables {

using platform::Table;

inline constexpr Table kUsers{"users", "IDUserName"};
inline constexpr Table kBuddies{"buddies", "IDBuddies"};
inline constexpr Table kRooms{"rooms", "IDRoom"};
inline constexpr Table kMessages{"messages", "IDMessage"};
inline constexpr Table kLog{"log", "IDLog"};
inline constexpr Table kCommand{"command", "IDCommand"};
inline constexpr Table kAutoReply{"autoreply", "IDAutoReply"};
// Of the safeguards.
inline constexpr Table kQueue{"queue", "IDQueue"};
inline constexpr Table kQueueText{"queuetext", "IDQueueText"};
inline constexpr Table kQueueCount{"queuecount", "IDQueueCount"};
inline constexpr Table kLastLogOn{"lastlogon", "IDLastLogOn"};

} // namespace tables

namespace statements {

using platform::Statement;

// users

/// All accounts, for the snapshot.
inline constexpr Statement kSelectUsers{"SELECT * FROM users order by UserName", &tables::kUsers};
/// One account: name.
inline constexpr Statement kSelectUser{"SELECT * FROM users WHERE UserName = '{}'", &tables::kUsers};
/// One account whose details are about to change: name.
inline constexpr Statement kSelectUserForDetails{
    "SELECT * FROM users where UserName = '{}'", &tables::kUsers};
/// The password that its owner changes: name.
inline constexpr Statement kSelectPassword{
    "SELECT Password FROM users WHERE UserName = '{}'", &tables::kUsers};
/// The password that is set from outside: name.
inline constexpr Statement kSelectPasswordForSetting{
    "SELECT Password FROM users where UserName = '{}'", &tables::kUsers};
/// Passwords that are not encoded yet: the marker, twice.
inline constexpr Statement kSelectPlainPasswords{
    "SELECT PassWord FROM users WHERE Left (Password, Len('{}')) <> '{}'", &tables::kUsers};
/// A new account: name, password, first name, last name, e-mail.
inline constexpr Statement kInsertUser{
    "INSERT INTO users ([UserName] ,[Password] , [FirstName] , [LastName], [Email]) "
    "VALUES ('{}', '{}', '{}', '{}', '{}')",
    &tables::kUsers};
/// Sorted names, for the host's pages.
inline constexpr Statement kSelectUserNames{"SELECT username FROM users order by username", &tables::kUsers};
/// Names in no order, for the activity job.
inline constexpr Statement kSelectUserNamesForActivity{"SELECT UserName FROM users", &tables::kUsers};
/// Sorted names with the client that each last used.
inline constexpr Statement kSelectClientVersions{
    "SELECT UserName , IMClientInUse FROM users order by username", &tables::kUsers};
/// The client that one account last used: name.
inline constexpr Statement kSelectClientInUse{
    "SELECT IMClientInUse FROM users WHERE UserName = '{}'", &tables::kUsers};
/// Field CountOfUsers.
inline constexpr Statement kCountUsers{"SELECT count(IDUserName) as CountOfUsers from users"};
/// Field CountOfUsers; what the connection test runs.
inline constexpr Statement kProbe{"SELECT count(UserName) as CountOfUsers from users"};

// buddies

/// All entries, for the snapshot.
inline constexpr Statement kSelectBuddies{
    "SELECT * FROM buddies order by Username, Buddy", &tables::kBuddies};
/// Field CountOfBuddy: all entries.
inline constexpr Statement kCountBuddies{"SELECT Count(IDBuddies) AS CountOfBuddy FROM buddies"};
/// Field CountOfBuddy: an owner's entries for one buddy: owner, buddy. No row when there are none.
inline constexpr Statement kCountBuddyEntries{
    "SELECT Count(buddies.buddy) AS CountOfBuddy FROM buddies WHERE UserName = '{}' AND buddy = '{}' "
    "GROUP BY UserName, buddy"};
/// Every entry of a pair of owner and buddy that stands more than once, newest first within the pair.
/// As it stands a database would group the whole table again for each of its rows.
inline constexpr Statement kSelectDuplicatedBuddies{
    "SELECT UserName, buddy , IDBuddies FROM buddies WHERE (UserName IN"
    " (SELECT [UserName] FROM [buddies] AS Tmp GROUP BY [UserName], [buddy]"
    " HAVING COUNT(*) > 1 AND [buddy] = [buddies].[buddy])) ORDER BY UserName , buddy , IDBuddies DESC",
    &tables::kBuddies,
    "SELECT buddies.UserName, buddies.buddy, IDBuddies FROM buddies INNER JOIN"
    " (SELECT UserName, buddy FROM buddies GROUP BY UserName, buddy HAVING COUNT(*) > 1) AS Tmp"
    " ON Tmp.UserName = buddies.UserName AND Tmp.buddy = buddies.buddy"
    " ORDER BY buddies.UserName, buddies.buddy, IDBuddies DESC"};
/// An owner's entries for one buddy, newest first: owner, buddy.
inline constexpr Statement kSelectBuddyEntries{
    "SELECT * FROM buddies WHERE UserName = '{}' AND Buddy = '{}' ORDER BY IDBuddies DESC",
    &tables::kBuddies};
/// Those that are newer than a key: owner, buddy, key.
inline constexpr Statement kSelectNewBuddyEntries{
    "SELECT * FROM buddies WHERE UserName = '{}' AND Buddy = '{}' AND IDBuddies > {}", &tables::kBuddies};
/// owner, buddy.
inline constexpr Statement kDeleteBuddy{
    "DELETE From buddies WHERE UserName = '{}' AND buddy = '{}'", &tables::kBuddies};
/// owner, buddy, group.
inline constexpr Statement kInsertBuddy{
    "INSERT INTO buddies (UserName , Buddy, [Group]) values  ('{}' , '{}' , '{}')", &tables::kBuddies};
/// key, comment, group, buddy, owner.
inline constexpr Statement kUpdateBuddy{
    "UPDATE buddies SET buddies.[key] = '{}', buddies.comment = '{}', buddies.[Group] = '{}' "
    "WHERE buddy = '{}' AND UserName = '{}'",
    &tables::kBuddies};
/// buddy, owner.
inline constexpr Statement kSelectBuddyKey{
    "SELECT [Key] FROM buddies WHERE buddy = '{}' AND UserName = '{}'", &tables::kBuddies};

// rooms

/// All rooms, for the snapshot.
inline constexpr Statement kSelectRooms{"SELECT * FROM rooms order by RoomName", &tables::kRooms};
/// Opened to add a room.
inline constexpr Statement kSelectRoomsForAdding{"SELECT * FROM rooms", &tables::kRooms};
/// A room of one owner: name, and the owner as a whole literal with its quotes.
inline constexpr Statement kSelectOwnedRoom{
    "SELECT * FROM rooms WHERE RoomName  = '{}' AND UserName_Owner = {}", &tables::kRooms};
/// Rooms of a name that are newer than a key: name, key.
inline constexpr Statement kSelectNewRooms{
    "SELECT * FROM rooms WHERE RoomName = '{}' AND IDRoom > {}", &tables::kRooms};
/// Field CountOfRooms.
inline constexpr Statement kCountRooms{"SELECT Count(IDRoom) AS CountOfRooms FROM rooms"};

// messages

/// Opened to add a message.
inline constexpr Statement kSelectMessagesForAdding{"SELECT * FROM messages", &tables::kMessages};
/// A message, newest first: sender, recipient, MsgID.
inline constexpr Statement kSelectMessage{
    "SELECT * FROM messages WHERE UserName_From = '{}' AND UserName_To = '{}' AND MsgID = {} "
    "ORDER BY IDMessage DESC",
    &tables::kMessages, {}, false,
    "SELECT messages.* FROM messagenumbers INNER JOIN messages "
    "ON messages.IDMessage = messagenumbers.IDMessage AND messages.MsgID = messagenumbers.MsgID "
    "WHERE messages.UserName_From = '{}' "
    "AND messages.UserName_To = '{}' AND messagenumbers.MsgID = {} ORDER BY messages.IDMessage DESC"};
/// Whether a message is there: sender, recipient, MsgID.
inline constexpr Statement kFindMessage{
    "SELECT IDMessage FROM messages WHERE UserName_From = '{}' AND UserName_To = '{}' AND MsgID = {}",
    &tables::kMessages, {}, true,
    "SELECT messages.IDMessage FROM messagenumbers INNER JOIN messages "
    "ON messages.IDMessage = messagenumbers.IDMessage AND messages.MsgID = messagenumbers.MsgID "
    "WHERE messages.UserName_From = '{}' AND messages.UserName_To = '{}' AND messagenumbers.MsgID = {}"};
/// Field LastMessage: the greatest key, null when there is none.
inline constexpr Statement kSelectLastMessage{"SELECT Max(IDMessage) AS LastMessage FROM messages"};
/// The numbers in a range of keys: the key before the first, the last.
inline constexpr Statement kSelectMsgIDs{
    "SELECT MsgID FROM messages WHERE IDMessage > {} AND IDMessage <= {}", nullptr, {}, true};
/// Messages of anybody: MsgID.
inline constexpr Statement kSelectMessagesByMsgID{"SELECT * FROM messages WHERE MsgID = {}",
    &tables::kMessages, {}, false,
    "SELECT messages.* FROM messagenumbers INNER JOIN messages "
    "ON messages.IDMessage = messagenumbers.IDMessage AND messages.MsgID = messagenumbers.MsgID "
    "WHERE messagenumbers.MsgID = {} ORDER BY messages.IDMessage"};
/// Messages to one user: MsgID, recipient.
inline constexpr Statement kSelectMessagesOfRecipient{
    "SELECT * FROM messages WHERE MsgID = {} AND UserName_To = '{}'", &tables::kMessages, {}, false,
    "SELECT messages.* FROM messagenumbers INNER JOIN messages "
    "ON messages.IDMessage = messagenumbers.IDMessage AND messages.MsgID = messagenumbers.MsgID "
    "WHERE messagenumbers.MsgID = {} AND messages.UserName_To = '{}'"};

// queue

/// All waiting messages in their order.
inline constexpr Statement kSelectQueue{"SELECT * FROM queue ORDER BY IDQueue", &tables::kQueue};
/// Texts of waiting messages with several recipients.
inline constexpr Statement kSelectQueueTexts{"SELECT * FROM queuetext", &tables::kQueueText};
/// Whether a waiting message is there: key, sender, recipient, MsgID.
inline constexpr Statement kFindQueueRow{
    "SELECT IDQueue FROM queue WHERE IDQueue = {} AND UserName_From = '{}' AND UserName_To = '{}' "
    "AND MsgID = {}",
    &tables::kQueue};
/// time, key.
inline constexpr Statement kUpdateQueueSent{
    "UPDATE queue SET Sent = 1, SentTime = '{}' WHERE IDQueue = {}", &tables::kQueue};
/// key.
inline constexpr Statement kDeleteQueueRow{"DELETE FROM queue WHERE IDQueue = {}", &tables::kQueue};
/// The one row of totals.
inline constexpr Statement kSelectQueueCount{
    "SELECT * FROM queuecount ORDER BY IDQueueCount", &tables::kQueueCount};

// log

/// user name, remote address, action.
inline constexpr Statement kInsertLogRow{
    "INSERT INTO [LOG] ( [UserName], [RemoteIP], [Action]) VALUES ( '{}' , '{}' , '{}' )", &tables::kLog};
/// age in days from which on rows are deleted.
inline constexpr Statement kDeleteOldLog{
    "DELETE From Log WHERE DateDiff('d',Format([log].[ActionTime],'dd/mm/yyyy'),Date()) >= {}",
    &tables::kLog};
/// Fields DaysAgo and IDLog of the oldest row.
inline constexpr Statement kSelectOldestLogRow{
    "SELECT TOP 1 DateDiff('d',log.ActionTime,Date()) AS DaysAgo, log.IDLog FROM log ORDER BY log.IDLog"};
/// The same as above for the first rows only: key below which they are, age in days.
inline constexpr Statement kDeleteFirstOldLogRows{
    "DELETE FROM log WHERE IDLog < {} AND DateDiff('d',ActionTime,Date()) >= {}", &tables::kLog};
/// The newest lines, field MyLog (a name that the database layer gives): number of lines.
inline constexpr Statement kSelectLogLines{
    "SELECT TOP {} (CAST([ActionTime] AS char(20)) + '/' + UserName + '/' + RemoteIP + '/' + Action) "
    "FROM log ORDER BY IDLog DESC;"};
/// The times of the newest lines: number of lines.
inline constexpr Statement kSelectLogTimes{"SELECT TOP {} ActionTime FROM log ORDER BY IDLog DESC"};
/// Field LastOfActionTime of an account's rows: name. No row when it has none.
/// As it stands a database would group the whole log to find one user.
inline constexpr Statement kSelectLastActivity{
    "SELECT Last(log.ActionTime) AS LastOfActionTime FROM log INNER JOIN users "
    "ON log.UserName = users.UserName GROUP BY log.UserName HAVING (((log.UserName)= '{}'));",
    nullptr,
    "SELECT Last(log.ActionTime) AS LastOfActionTime FROM log INNER JOIN users "
    "ON log.UserName = users.UserName WHERE log.UserName = '{}' GROUP BY log.UserName",
    false,
    "SELECT useractivity.LastTime AS LastOfActionTime FROM useractivity INNER JOIN users "
    "ON useractivity.UserName = users.UserName WHERE useractivity.UserName = '{}'"};
/// Fields DaysAgo (age of the oldest log row) and UserName, most inactive first: least number of days.
/// As it stands a database would read the whole log to find each user's oldest row.
inline constexpr Statement kSelectInactiveUsers{
    "SELECT TOP 100 PERCENT Max(DateDiff('d',log.ActionTime,Date())) AS DaysAgo, Log.UserName "
    " FROM Users INNER JOIN Log ON Users.UserName = Log.UserName "
    " GROUP BY Log.UserName "
    " HAVING (((Max(DateDiff('d',[log].[ActionTime],Date())))>= {} )) "
    " ORDER BY Max(DateDiff('d',log.ActionTime,Date())) DESC , Log.UserName;",
    nullptr,
    "SELECT DateDiff('d', Oldest.ActionTime, Date()) AS DaysAgo, Oldest.UserName FROM"
    " (SELECT users.UserName, (SELECT MIN(log.ActionTime) FROM log WHERE log.UserName = users.UserName)"
    " AS ActionTime FROM users) AS Oldest"
    " WHERE DateDiff('d', Oldest.ActionTime, Date()) >= {} ORDER BY DaysAgo DESC, Oldest.UserName",
    false,
    "SELECT DateDiff('d', useractivity.FirstTime, Date()) AS DaysAgo, users.UserName"
    " FROM users INNER JOIN useractivity ON users.UserName = useractivity.UserName"
    " WHERE DateDiff('d', useractivity.FirstTime, Date()) >= {} ORDER BY DaysAgo DESC, users.UserName"};
/// A row when the active account logged on lately: greatest number of days, name.
/// As it stands some databases do not see that it is sorted by what it selects.
inline constexpr Statement kSelectRecentLogOn{
    "SELECT Distinct TOP 1 DateDiff('d',log.ActionTime,Date()) AS DaysAgo, log.UserName "
    " From Log, Users "
    " WHERE users.AccountActive = 1 and DateDiff('d',ActionTime,Date()) <= {}"
    " and (log.UserName) = (users.UserName) And Log.UserName = '{}'"
    " and instr(Action,'LogOn successfully') > 0 "
    " ORDER BY DateDiff('d',ActionTime,Date())",
    nullptr,
    "SELECT Distinct TOP 1 DateDiff('d',log.ActionTime,Date()) AS DaysAgo, log.UserName From log, users"
    " WHERE users.AccountActive = 1 and DateDiff('d',log.ActionTime,Date()) <= {}"
    " and log.UserName = users.UserName And log.UserName = '{}'"
    " and instr(log.Action,'LogOn successfully') > 0 ORDER BY DaysAgo"};

// command

/// Waiting commands in the order of their execution.
inline constexpr Statement kSelectCommands{"SELECT * FROM command order by IDCommand", &tables::kCommand};
/// command, parameters.
inline constexpr Statement kInsertCommand{
    "INSERT INTO [command] ([action] , [Parameters]) VALUES ('{}' , '{}')", &tables::kCommand};
/// key.
inline constexpr Statement kDeleteCommand{"DELETE FROM [command] WHERE IDCommand = {}", &tables::kCommand};
inline constexpr Statement kDeleteAllCommands{"DELETE FROM [command]", &tables::kCommand};

// autoreply

/// name.
inline constexpr Statement kSelectAutoReply{
    "SELECT * FROM autoreply WHERE UserName  = '{}'", &tables::kAutoReply};
/// name.
inline constexpr Statement kSelectAutoReplyEnabled{
    "SELECT Enabled FROM autoreply WHERE UserName  = '{}'", &tables::kAutoReply};
/// name.
inline constexpr Statement kSelectAutoReplyMessage{
    "SELECT Message FROM autoreply WHERE UserName  = '{}'", &tables::kAutoReply};

// lastlogon

/// One account's last logon: name.
inline constexpr Statement kSelectLastLogOn{
    "SELECT * FROM lastlogon WHERE UserName = '{}'", &tables::kLastLogOn};
/// Opened to add a last logon.
inline constexpr Statement kSelectLastLogOnsForAdding{"SELECT * FROM lastlogon", &tables::kLastLogOn};
/// All accounts with their last logons, null where none is known.
inline constexpr Statement kSelectAccountsWithLastLogOn{
    "SELECT users.UserName, users.AccountActive, lastlogon.LogOnTime FROM users LEFT JOIN lastlogon "
    "ON users.UserName = lastlogon.UserName ORDER BY users.UserName"};

} // namespace statements

/// All of them: the catalogue that a connection is made with.
std::span<const platform::Statement> all_statements();

} // namespace qz::store
