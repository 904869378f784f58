// Every SQL statement of the engine, once. The stated texts mix two dialects, letter cases and odd blanks on
// purpose: other programs compare them in reports, so they are kept exactly. What runs is the text beside it.
#pragma once

#include "platform/database/Statement.h"

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
inline constexpr Statement kSelectUsers{.stated = "SELECT * FROM users order by UserName",
    .sql = "SELECT * FROM users ORDER BY username",
    .table = &tables::kUsers};
/// One account: name.
inline constexpr Statement kSelectUser{.stated = "SELECT * FROM users WHERE UserName = '{}'",
    .sql = "SELECT * FROM users WHERE username = ?",
    .table = &tables::kUsers};
/// One account whose details are about to change: name.
inline constexpr Statement kSelectUserForDetails{.stated = "SELECT * FROM users where UserName = '{}'",
    .sql = "SELECT * FROM users WHERE username = ?",
    .table = &tables::kUsers};
/// The password that its owner changes: name.
inline constexpr Statement kSelectPassword{.stated = "SELECT Password FROM users WHERE UserName = '{}'",
    .sql = "SELECT password, idusername FROM users WHERE username = ?",
    .table = &tables::kUsers};
/// The password that is set from outside: name.
inline constexpr Statement kSelectPasswordForSetting{
    .stated = "SELECT Password FROM users where UserName = '{}'",
    .sql = "SELECT password, idusername FROM users WHERE username = ?",
    .table = &tables::kUsers};
/// Passwords that are not encoded yet: the marker, twice.
inline constexpr Statement kSelectPlainPasswords{
    .stated = "SELECT PassWord FROM users WHERE Left (Password, Len('{}')) "
              "<> '{}'",
    .sql = "SELECT password, idusername FROM users WHERE substring(password, 1, ?) <> ?",
    .table = &tables::kUsers};
/// A new account: name, password, first name, last name, e-mail.
inline constexpr Statement kInsertUser{.stated = "INSERT INTO users ([UserName] ,[Password] , [FirstName] , "
                                                 "[LastName], [Email]) VALUES ('{}', '{}', '{}', '{}', '{}')",
    .sql = "INSERT INTO users (username, password, firstname, lastname, email) VALUES (?, "
           "?, ?, ?, ?)",
    .table = &tables::kUsers};
/// Sorted names, for the host's pages.
inline constexpr Statement kSelectUserNames{.stated = "SELECT username FROM users order by username",
    .sql = "SELECT username, idusername FROM users ORDER BY username",
    .table = &tables::kUsers};
/// Names in no order, for the activity job.
inline constexpr Statement kSelectUserNamesForActivity{.stated = "SELECT UserName FROM users",
    .sql = "SELECT username, idusername FROM users",
    .table = &tables::kUsers};
/// Sorted names with the client that each last used.
inline constexpr Statement kSelectClientVersions{
    .stated = "SELECT UserName , IMClientInUse FROM users order by username",
    .sql = "SELECT username, imclientinuse, idusername FROM users ORDER BY username",
    .table = &tables::kUsers};
/// The client that one account last used: name.
inline constexpr Statement kSelectClientInUse{
    .stated = "SELECT IMClientInUse FROM users WHERE UserName = '{}'",
    .sql = "SELECT imclientinuse, idusername FROM users WHERE username = ?",
    .table = &tables::kUsers};
/// Field CountOfUsers.
inline constexpr Statement kCountUsers{.stated = "SELECT count(IDUserName) as CountOfUsers from users",
    .sql = "SELECT COUNT(idusername) AS countofusers FROM users",
    .table = &tables::kUsers};
/// Field CountOfUsers; what the connection test runs.
inline constexpr Statement kProbe{.stated = "SELECT count(UserName) as CountOfUsers from users",
    .sql = "SELECT COUNT(username) AS countofusers FROM users",
    .table = &tables::kUsers};

// buddies

/// All entries, for the snapshot.
inline constexpr Statement kSelectBuddies{.stated = "SELECT * FROM buddies order by Username, Buddy",
    .sql = "SELECT * FROM buddies ORDER BY username, buddy",
    .table = &tables::kBuddies};
/// Field CountOfBuddy: all entries.
inline constexpr Statement kCountBuddies{.stated = "SELECT Count(IDBuddies) AS CountOfBuddy FROM buddies",
    .sql = "SELECT COUNT(idbuddies) AS countofbuddy FROM buddies",
    .table = &tables::kBuddies};
/// Field CountOfBuddy: an owner's entries for one buddy: owner, buddy. No row when there are none.
inline constexpr Statement kCountBuddyEntries{
    .stated = "SELECT Count(buddies.buddy) AS CountOfBuddy FROM buddies "
              "WHERE UserName = '{}' AND buddy = '{}' GROUP BY UserName, buddy",
    .sql = "SELECT COUNT(buddies.buddy) AS countofbuddy FROM buddies WHERE username = ? AND "
           "buddy = ? GROUP BY username, buddy",
    .table = &tables::kBuddies};
/// Every entry of a pair of owner and buddy that stands more than once, newest first within the pair.
/// As it stands a database would group the whole table again for each of its rows.
inline constexpr Statement kSelectDuplicatedBuddies{
    .stated = "SELECT UserName, buddy , IDBuddies FROM buddies WHERE "
              "(UserName IN (SELECT [UserName] FROM [buddies] AS Tmp GROUP BY [UserName], [buddy] HAVING "
              "COUNT(*) > 1 AND [buddy] = [buddies].[buddy])) ORDER BY UserName , buddy , IDBuddies DESC",
    .sql = "SELECT buddies.username, buddies.buddy, idbuddies FROM buddies INNER JOIN "
           "(SELECT username, buddy FROM buddies GROUP BY username, buddy HAVING COUNT(*) > 1) AS tmp ON "
           "tmp.username = buddies.username AND tmp.buddy = buddies.buddy ORDER BY buddies.username, "
           "buddies.buddy, idbuddies DESC",
    .table = &tables::kBuddies};
/// An owner's entries for one buddy, newest first: owner, buddy.
inline constexpr Statement kSelectBuddyEntries{.stated =
                                                   "SELECT * FROM buddies WHERE UserName = '{}' AND Buddy = "
                                                   "'{}' ORDER BY IDBuddies DESC",
    .sql = "SELECT * FROM buddies WHERE username = ? AND buddy = ? ORDER BY idbuddies DESC",
    .table = &tables::kBuddies};
/// Those that are newer than a key: owner, buddy, key.
inline constexpr Statement kSelectNewBuddyEntries{
    .stated = "SELECT * FROM buddies WHERE UserName = '{}' AND Buddy = "
              "'{}' AND IDBuddies > {}",
    .sql = "SELECT * FROM buddies WHERE username = ? AND buddy = ? AND idbuddies > ?",
    .table = &tables::kBuddies};
/// owner, buddy.
inline constexpr Statement kDeleteBuddy{
    .stated = "DELETE From buddies WHERE UserName = '{}' AND buddy = '{}'",
    .sql = "DELETE FROM buddies WHERE username = ? AND buddy = ?",
    .table = &tables::kBuddies};
/// owner, buddy, group.
inline constexpr Statement kInsertBuddy{.stated = "INSERT INTO buddies (UserName , Buddy, [Group]) values  "
                                                  "('{}' , '{}' , '{}')",
    .sql = "INSERT INTO buddies (username, buddy, \"group\") VALUES (?, ?, ?)",
    .table = &tables::kBuddies};
/// key, comment, group, buddy, owner.
inline constexpr Statement kUpdateBuddy{
    .stated = "UPDATE buddies SET buddies.[key] = '{}', buddies.comment = "
              "'{}', buddies.[Group] = '{}' WHERE buddy = '{}' AND UserName = '{}'",
    .sql = "UPDATE buddies SET \"key\" = ?, comment = ?, \"group\" = ? WHERE buddy = ? AND "
           "username = ?",
    .table = &tables::kBuddies};
/// buddy, owner.
inline constexpr Statement kSelectBuddyKey{.stated =
                                               "SELECT [Key] FROM buddies WHERE buddy = '{}' AND UserName = "
                                               "'{}'",
    .sql = "SELECT \"key\", idbuddies FROM buddies WHERE buddy = ? AND username = ?",
    .table = &tables::kBuddies};

// rooms

/// All rooms, for the snapshot.
inline constexpr Statement kSelectRooms{.stated = "SELECT * FROM rooms order by RoomName",
    .sql = "SELECT * FROM rooms ORDER BY roomname",
    .table = &tables::kRooms};
/// A room of one owner: name, and the owner as a whole literal with its quotes.
inline constexpr Statement kSelectOwnedRoom{.stated = "SELECT * FROM rooms WHERE RoomName  = '{}' AND "
                                                      "UserName_Owner = {}",
    .sql = "SELECT * FROM rooms WHERE roomname = ? AND username_owner = ?",
    .table = &tables::kRooms};
/// Rooms of a name that are newer than a key: name, key.
inline constexpr Statement kSelectNewRooms{
    .stated = "SELECT * FROM rooms WHERE RoomName = '{}' AND IDRoom > {}",
    .sql = "SELECT * FROM rooms WHERE roomname = ? AND idroom > ?",
    .table = &tables::kRooms};
/// Field CountOfRooms.
inline constexpr Statement kCountRooms{.stated = "SELECT Count(IDRoom) AS CountOfRooms FROM rooms",
    .sql = "SELECT COUNT(idroom) AS countofrooms FROM rooms",
    .table = &tables::kRooms};

// messages

/// A message, newest first: sender, recipient, MsgID.
inline constexpr Statement kSelectMessage{.stated =
                                              "SELECT * FROM messages WHERE UserName_From = '{}' AND "
                                              "UserName_To = '{}' AND MsgID = {} ORDER BY IDMessage DESC",
    .sql = "SELECT * FROM messages WHERE username_from = ? AND username_to = ? AND msgid = "
           "? ORDER BY idmessage DESC",
    .table = &tables::kMessages,
    .finds_by_fixed_columns = true};
/// Whether a message is there: sender, recipient, MsgID.
inline constexpr Statement kFindMessage{.stated = "SELECT IDMessage FROM messages WHERE UserName_From = '{}' "
                                                  "AND UserName_To = '{}' AND MsgID = {}",
    .sql = "SELECT idmessage FROM messages WHERE username_from = ? AND username_to = ? AND "
           "msgid = ?",
    .table = &tables::kMessages,
    .ignores_pending_writes = true};
/// Field LastMessage: the greatest key, null when there is none.
inline constexpr Statement kSelectLastMessage{.stated = "SELECT Max(IDMessage) AS LastMessage FROM messages",
    .sql = "SELECT MAX(idmessage) AS lastmessage FROM messages",
    .table = &tables::kMessages};
/// The numbers in a range of keys: the key before the first, the last.
inline constexpr Statement kSelectMsgIDs{.stated = "SELECT MsgID FROM messages WHERE IDMessage > {} AND "
                                                   "IDMessage <= {}",
    .sql = "SELECT msgid FROM messages WHERE idmessage > ? AND idmessage <= ?",
    .table = &tables::kMessages,
    .ignores_pending_writes = true};
/// Messages of anybody: MsgID.
inline constexpr Statement kSelectMessagesByMsgID{.stated = "SELECT * FROM messages WHERE MsgID = {}",
    .sql = "SELECT * FROM messages WHERE msgid = ?",
    .table = &tables::kMessages,
    .finds_by_fixed_columns = true};
/// Messages to one user: MsgID, recipient.
inline constexpr Statement kSelectMessagesOfRecipient{
    .stated = "SELECT * FROM messages WHERE MsgID = {} AND UserName_To = "
              "'{}'",
    .sql = "SELECT * FROM messages WHERE msgid = ? AND username_to = ?",
    .table = &tables::kMessages,
    .finds_by_fixed_columns = true};

// queue

/// All waiting messages in their order.
inline constexpr Statement kSelectQueue{.stated = "SELECT * FROM queue ORDER BY IDQueue",
    .sql = "SELECT * FROM queue ORDER BY idqueue",
    .table = &tables::kQueue};
/// Texts of waiting messages with several recipients.
inline constexpr Statement kSelectQueueTexts{
    .stated = "SELECT * FROM queuetext", .sql = "SELECT * FROM queuetext", .table = &tables::kQueueText};
/// Whether a waiting message is there: key, sender, recipient, MsgID.
inline constexpr Statement kFindQueueRow{.stated =
                                             "SELECT IDQueue FROM queue WHERE IDQueue = {} AND "
                                             "UserName_From = '{}' AND UserName_To = '{}' AND MsgID = {}",
    .sql = "SELECT idqueue FROM queue WHERE idqueue = ? AND username_from = ? AND "
           "username_to = ? AND msgid = ?",
    .table = &tables::kQueue,
    .finds_by_fixed_columns = true};
/// The one row of totals.
inline constexpr Statement kSelectQueueCount{.stated = "SELECT * FROM queuecount ORDER BY IDQueueCount",
    .sql = "SELECT * FROM queuecount ORDER BY idqueuecount",
    .table = &tables::kQueueCount};

// log

/// user name, remote address, action.
inline constexpr Statement kInsertLogRow{.stated = "INSERT INTO [LOG] ( [UserName], [RemoteIP], [Action]) "
                                                   "VALUES ( '{}' , '{}' , '{}' )",
    .sql = "INSERT INTO log (username, remoteip, action) VALUES (?, ?, ?)",
    .table = &tables::kLog};
/// age in days from which on rows are deleted.
inline constexpr Statement kDeleteOldLog{
    .stated = "DELETE From Log WHERE "
              "DateDiff('d',Format([log].[ActionTime],'dd/mm/yyyy'),Date()) >= {}",
    .table = &tables::kLog};
/// Fields DaysAgo and IDLog of the oldest row.
inline constexpr Statement kSelectOldestLogRow{.stated =
                                                   "SELECT TOP 1 DateDiff('d',log.ActionTime,Date()) AS "
                                                   "DaysAgo, log.IDLog FROM log ORDER BY log.IDLog",
    .table = &tables::kLog};
/// The same as above for the first rows only: key below which they are, age in days.
inline constexpr Statement kDeleteFirstOldLogRows{.stated = "DELETE FROM log WHERE IDLog < {} AND "
                                                            "DateDiff('d',ActionTime,Date()) >= {}",
    .table = &tables::kLog};
/// The newest lines, field MyLog (a name that the database layer gives): number of lines.
inline constexpr Statement kSelectLogLines{
    .stated = "SELECT TOP {} (CAST([ActionTime] AS char(20)) + '/' + "
              "UserName + '/' + RemoteIP + '/' + Action) FROM log ORDER BY IDLog DESC;",
    .sql = "SELECT (CAST(actiontime AS char(20)) || '/' || username || '/' || remoteip || "
           "'/' || action) AS mylog FROM log ORDER BY idlog DESC LIMIT ?",
    .table = &tables::kLog};
/// The times of the newest lines: number of lines.
inline constexpr Statement kSelectLogTimes{.stated = "SELECT TOP {} ActionTime FROM log ORDER BY IDLog DESC",
    .sql = "SELECT actiontime FROM log ORDER BY idlog DESC LIMIT ?",
    .table = &tables::kLog};
/// Field LastOfActionTime of an account's rows: name. No row when it has none.
/// As it stands a database would group the whole log to find one user.
inline constexpr Statement kSelectLastActivity{
    .stated = "SELECT Last(log.ActionTime) AS LastOfActionTime FROM log "
              "INNER JOIN users ON log.UserName = users.UserName GROUP BY log.UserName HAVING "
              "(((log.UserName)= '{}'));",
    .sql = "SELECT MAX(log.actiontime) AS lastofactiontime FROM log INNER JOIN users ON "
           "log.username = users.username WHERE log.username = ? GROUP BY log.username",
    .table = &tables::kLog,
    .joined = &tables::kUsers};
/// Fields DaysAgo (age of the oldest log row) and UserName, most inactive first: least number of days.
/// As it stands a database would read the whole log to find each user's oldest row.
inline constexpr Statement kSelectInactiveUsers{
    .stated = "SELECT TOP 100 PERCENT "
              "Max(DateDiff('d',log.ActionTime,Date())) AS DaysAgo, Log.UserName  FROM Users INNER JOIN Log "
              "ON Users.UserName = Log.UserName  GROUP BY Log.UserName  HAVING "
              "(((Max(DateDiff('d',[log].[ActionTime],Date())))>= {} ))  ORDER BY "
              "Max(DateDiff('d',log.ActionTime,Date())) DESC , Log.UserName;",
    .table = &tables::kLog,
    .joined = &tables::kUsers};
/// A row when the active account logged on lately: greatest number of days, name.
/// As it stands some databases do not see that it is sorted by what it selects.
inline constexpr Statement kSelectRecentLogOn{
    .stated =
        "SELECT Distinct TOP 1 DateDiff('d',log.ActionTime,Date()) "
        "AS DaysAgo, log.UserName  From Log, Users  WHERE users.AccountActive = 1 and "
        "DateDiff('d',ActionTime,Date()) <= {} and (log.UserName) = (users.UserName) And Log.UserName = "
        "'{}' and instr(Action,'LogOn successfully') > 0  ORDER BY DateDiff('d',ActionTime,Date())",
    .table = &tables::kLog,
    .joined = &tables::kUsers};

// command

/// Waiting commands in the order of their execution.
inline constexpr Statement kSelectCommands{.stated = "SELECT * FROM command order by IDCommand",
    .sql = "SELECT * FROM command ORDER BY idcommand",
    .table = &tables::kCommand};
/// command, parameters.
inline constexpr Statement kInsertCommand{.stated = "INSERT INTO [command] ([action] , [Parameters]) VALUES "
                                                    "('{}' , '{}')",
    .sql = "INSERT INTO command (action, parameters) VALUES (?, ?)",
    .table = &tables::kCommand};
/// key.
inline constexpr Statement kDeleteCommand{.stated = "DELETE FROM [command] WHERE IDCommand = {}",
    .sql = "DELETE FROM command WHERE idcommand = ?",
    .table = &tables::kCommand};
inline constexpr Statement kDeleteAllCommands{
    .stated = "DELETE FROM [command]", .sql = "DELETE FROM command", .table = &tables::kCommand};

// autoreply

/// name.
inline constexpr Statement kSelectAutoReply{.stated = "SELECT * FROM autoreply WHERE UserName  = '{}'",
    .sql = "SELECT * FROM autoreply WHERE username = ?",
    .table = &tables::kAutoReply};
/// name.
inline constexpr Statement kSelectAutoReplyEnabled{
    .stated = "SELECT Enabled FROM autoreply WHERE UserName  = '{}'",
    .sql = "SELECT enabled, idautoreply FROM autoreply WHERE username = ?",
    .table = &tables::kAutoReply};
/// name.
inline constexpr Statement kSelectAutoReplyMessage{
    .stated = "SELECT Message FROM autoreply WHERE UserName  = '{}'",
    .sql = "SELECT message, idautoreply FROM autoreply WHERE username = ?",
    .table = &tables::kAutoReply};

// lastlogon

/// One account's last logon: name.
inline constexpr Statement kSelectLastLogOn{.stated = "SELECT * FROM lastlogon WHERE UserName = '{}'",
    .sql = "SELECT * FROM lastlogon WHERE username = ?",
    .table = &tables::kLastLogOn};
/// All accounts with their last logons, null where none is known.
inline constexpr Statement kSelectAccountsWithLastLogOn{
    .stated = "SELECT users.UserName, users.AccountActive, "
              "lastlogon.LogOnTime FROM users LEFT JOIN lastlogon ON users.UserName = lastlogon.UserName "
              "ORDER BY users.UserName",
    .sql = "SELECT users.username, users.accountactive, lastlogon.logontime FROM users LEFT "
           "JOIN lastlogon ON users.username = lastlogon.username ORDER BY users.username",
    .table = &tables::kUsers,
    .joined = &tables::kLastLogOn};

} // namespace statements

} // namespace qz::store
