#include "platform/sqlite/SqliteSchema.h"

#include "base/EngineError.h"
#include "platform/sqlite/SqliteDatabase.h"

#include <array>
#include <string>

namespace qz::platform {

namespace {

// Other programs read and write these tables with plain tools, so nothing in them needs a function or
// collation of ours, and every column but the keys may hold null. Dates are texts 'yyyy-mm-dd hh:mm:ss' of
// local time. "If not exists": a file restored from a dump has the tables, but has lost its version.
constexpr const char* kFirstTables = R"sql(
CREATE TABLE IF NOT EXISTS users (
    IDUserName INTEGER PRIMARY KEY AUTOINCREMENT,
    UserName TEXT COLLATE NOCASE,
    Password TEXT COLLATE NOCASE,
    IMClientInUse TEXT COLLATE NOCASE,
    FirstName TEXT COLLATE NOCASE,
    LastName TEXT COLLATE NOCASE,
    Email TEXT COLLATE NOCASE,
    AccountActive INTEGER DEFAULT 1,
    CreationTime TEXT DEFAULT (datetime('now','localtime')),
    Phone TEXT COLLATE NOCASE,
    Fax TEXT COLLATE NOCASE,
    HomePage TEXT COLLATE NOCASE,
    Country TEXT COLLATE NOCASE
);
CREATE UNIQUE INDEX IF NOT EXISTS users_UserName ON users (UserName);

CREATE TABLE IF NOT EXISTS buddies (
    IDBuddies INTEGER PRIMARY KEY AUTOINCREMENT,
    UserName TEXT COLLATE NOCASE,
    Buddy TEXT COLLATE NOCASE,
    [key] TEXT COLLATE NOCASE,
    Comment TEXT COLLATE NOCASE,
    [Group] TEXT COLLATE NOCASE,
    CreationTime TEXT DEFAULT (datetime('now','localtime'))
);
CREATE INDEX IF NOT EXISTS buddies_UserName_Buddy ON buddies (UserName, Buddy);
CREATE INDEX IF NOT EXISTS buddies_Buddy ON buddies (Buddy);

CREATE TABLE IF NOT EXISTS rooms (
    IDRoom INTEGER PRIMARY KEY AUTOINCREMENT,
    RoomName TEXT COLLATE NOCASE,
    CreationTime TEXT DEFAULT (datetime('now','localtime')),
    [key] TEXT COLLATE NOCASE,
    UserName_Owner TEXT COLLATE NOCASE
);
CREATE INDEX IF NOT EXISTS rooms_RoomName ON rooms (RoomName);

CREATE TABLE IF NOT EXISTS messages (
    IDMessage INTEGER PRIMARY KEY AUTOINCREMENT,
    UserName_From TEXT COLLATE NOCASE,
    UserName_To TEXT COLLATE NOCASE,
    MsgID NUMERIC,
    ReceiptRequested INTEGER DEFAULT 0,
    Sent INTEGER DEFAULT 0,
    SentTime TEXT,
    ReceivedTime TEXT,
    ExpirationTime TEXT,
    Delivered INTEGER DEFAULT 0,
    DeliveredTime TEXT,
    [Ignore] INTEGER DEFAULT 0
);
CREATE INDEX IF NOT EXISTS messages_MsgID ON messages (MsgID);
CREATE INDEX IF NOT EXISTS messages_From_To_MsgID ON messages (UserName_From, UserName_To, MsgID);

CREATE TABLE IF NOT EXISTS log (
    IDLog INTEGER PRIMARY KEY AUTOINCREMENT,
    ActionTime TEXT DEFAULT (datetime('now','localtime')),
    UserName TEXT COLLATE NOCASE,
    RemoteIP TEXT COLLATE NOCASE,
    Action TEXT COLLATE NOCASE
);
-- The time stands in the index too, so that a user's first and last activity are read off it.
CREATE INDEX IF NOT EXISTS log_UserName_ActionTime ON log (UserName, ActionTime);

CREATE TABLE IF NOT EXISTS command (
    IDCommand INTEGER PRIMARY KEY AUTOINCREMENT,
    action TEXT COLLATE NOCASE,
    Parameters TEXT COLLATE NOCASE
);

CREATE TABLE IF NOT EXISTS autoreply (
    IDAutoReply INTEGER PRIMARY KEY AUTOINCREMENT,
    UserName TEXT COLLATE NOCASE,
    Message TEXT COLLATE NOCASE,
    Enabled INTEGER DEFAULT 0
);
CREATE INDEX IF NOT EXISTS autoreply_UserName ON autoreply (UserName);
)sql";

// Tables of the safeguards: messages that wait with their texts, what became of all accepted ones, and when
// each user last logged on. The message is the one text that compares with case: it is never searched.
constexpr const char* kSafeguardTables = R"sql(
CREATE TABLE IF NOT EXISTS queue (
    IDQueue INTEGER PRIMARY KEY AUTOINCREMENT,
    UserName_From TEXT COLLATE NOCASE,
    UserName_To TEXT COLLATE NOCASE,
    MsgID NUMERIC,
    Message TEXT,
    RoomName TEXT COLLATE NOCASE,
    ReceiptRequested INTEGER DEFAULT 0,
    ReceivedTime TEXT,
    ExpirationTime TEXT,
    Sent INTEGER DEFAULT 0,
    SentTime TEXT
);

CREATE TABLE IF NOT EXISTS queuecount (
    IDQueueCount INTEGER PRIMARY KEY AUTOINCREMENT,
    Accepted INTEGER DEFAULT 0,
    Confirmed INTEGER DEFAULT 0,
    Expired INTEGER DEFAULT 0
);

CREATE TABLE IF NOT EXISTS lastlogon (
    IDLastLogOn INTEGER PRIMARY KEY AUTOINCREMENT,
    UserName TEXT COLLATE NOCASE,
    LogOnTime TEXT
);
CREATE UNIQUE INDEX IF NOT EXISTS lastlogon_UserName ON lastlogon (UserName);
)sql";

// One index finds a message by its number alone, with its recipient, and with both people. Numbers are drawn
// at random, so each index that begins with them costs a page of its own with every message.
constexpr const char* kOneMessageIndex = R"sql(
CREATE INDEX IF NOT EXISTS messages_MsgID_To_From ON messages (MsgID, UserName_To, UserName_From);
DROP INDEX IF EXISTS messages_MsgID;
DROP INDEX IF EXISTS messages_From_To_MsgID;
)sql";

// An index that begins with the user costs a page of its own for each user of a turn. Of a user's lines only
// the first, the last, and the logons are ever asked for: SqliteActivity keeps the first two, and sees to
// rows of `log` up to SeenUntil. Who removes or changes such a row makes it begin anew.
constexpr const char* kUserActivity = R"sql(
CREATE TABLE IF NOT EXISTS useractivity (
    UserName TEXT COLLATE NOCASE PRIMARY KEY,
    FirstTime TEXT,
    LastTime TEXT
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS useractivityseen (
    IDSeen INTEGER PRIMARY KEY,
    SeenUntil INTEGER
);
DELETE FROM useractivity;
INSERT OR REPLACE INTO useractivityseen VALUES (1, 0);
CREATE TRIGGER IF NOT EXISTS log_removed AFTER DELETE ON log
WHEN OLD.IDLog <= (SELECT SeenUntil FROM useractivityseen)
BEGIN
    DELETE FROM useractivity;
    UPDATE useractivityseen SET SeenUntil = 0;
END;
CREATE TRIGGER IF NOT EXISTS log_changed AFTER UPDATE OF IDLog, ActionTime, UserName ON log
WHEN OLD.IDLog <= (SELECT SeenUntil FROM useractivityseen)
BEGIN
    DELETE FROM useractivity;
    UPDATE useractivityseen SET SeenUntil = 0;
END;
CREATE INDEX IF NOT EXISTS log_LogOns ON log (UserName, ActionTime)
    WHERE instr(Action, 'LogOn successfully') > 0;
DROP INDEX IF EXISTS log_UserName_ActionTime;
)sql";

// Numbers of messages are drawn at random, so an index of `messages` by number costs a page of its own with
// every message once it is large. SqliteMessageNumbers enters them here in order, many at a time, up to the
// row SeenUntil. The triggers keep true what was entered.
constexpr const char* kMessageNumbers = R"sql(
CREATE TABLE IF NOT EXISTS messagenumbers (
    MsgID NUMERIC,
    IDMessage INTEGER,
    PRIMARY KEY (MsgID, IDMessage)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS messagenumbersseen (
    IDSeen INTEGER PRIMARY KEY,
    SeenUntil INTEGER
);
INSERT OR IGNORE INTO messagenumbers (MsgID, IDMessage)
    SELECT MsgID, IDMessage FROM messages WHERE MsgID IS NOT NULL ORDER BY MsgID;
INSERT OR REPLACE INTO messagenumbersseen VALUES (1, (SELECT coalesce(max(IDMessage), 0) FROM messages));
CREATE TRIGGER IF NOT EXISTS messages_removed AFTER DELETE ON messages
BEGIN
    DELETE FROM messagenumbers WHERE MsgID = OLD.MsgID AND IDMessage = OLD.IDMessage;
    UPDATE messagenumbersseen SET SeenUntil = 0 WHERE NOT EXISTS (SELECT 1 FROM messages);
END;
CREATE TRIGGER IF NOT EXISTS messages_renumbered AFTER UPDATE OF IDMessage, MsgID ON messages
BEGIN
    DELETE FROM messagenumbers WHERE MsgID = OLD.MsgID AND IDMessage = OLD.IDMessage;
    INSERT OR IGNORE INTO messagenumbers (MsgID, IDMessage)
        SELECT NEW.MsgID, NEW.IDMessage WHERE NEW.MsgID IS NOT NULL;
END;
DROP INDEX IF EXISTS messages_MsgID_To_From;
)sql";

// Texts of waiting messages with several recipients. A row of `queue` has its text, or the key of one here.
constexpr const char* kQueueTexts = R"sql(
CREATE TABLE IF NOT EXISTS queuetext (
    IDQueueText INTEGER PRIMARY KEY AUTOINCREMENT,
    Message TEXT
);
)sql";

/// A column that older tables do not have.
struct Column {
    const char* table;
    const char* name;
    const char* type;
};
constexpr Column kQueueTextKey{"queue", "IDQueueText", "INTEGER"};

struct Migration {
    const char* text;
    const Column* column = nullptr; // that is added as well
};

/// The migration at position n leads from version n to version n + 1. What was released is never changed; new
/// tables and columns are a new entry.
constexpr std::array kMigrations{Migration{kFirstTables}, Migration{kSafeguardTables},
    Migration{kOneMessageIndex}, Migration{kUserActivity}, Migration{kMessageNumbers},
    Migration{kQueueTexts, &kQueueTextKey}};

/// There is no "if not exists" for a column.
void add_missing(SqliteDatabase& database, const Column& column)
{
    const auto found = database.read(std::string("SELECT count(*) FROM pragma_table_info('") + column.table
        + "') WHERE name = '" + column.name + "' COLLATE NOCASE");
    if (found.integer() == 0) {
        database.run(
            std::string("ALTER TABLE ") + column.table + " ADD COLUMN " + column.name + " " + column.type);
    }
}

int version_of(SqliteDatabase& database)
{
    return database.read("PRAGMA user_version").integer();
}

} // namespace

int current_schema_version()
{
    return static_cast<int>(kMigrations.size());
}

int check_schema_version(SqliteDatabase& database)
{
    const int version = version_of(database);
    if (version < 0 || version > current_schema_version()) {
        throw database_error(DatabaseError::Unspecified,
            "The database file " + database.name() + " has schema version " + std::to_string(version)
                + ", but this program knows versions up to " + std::to_string(current_schema_version())
                + "; it was left untouched. Use the program version that wrote it, or a newer one");
    }
    return version;
}

void upgrade_schema(SqliteDatabase& database)
{
    if (version_of(database) == current_schema_version()) {
        return;
    }
    database.run("BEGIN IMMEDIATE");
    // Asked again: another program may have upgraded the file while this one waited for the lock. A failure
    // closes the database, which rolls everything back.
    for (int version = check_schema_version(database); version < current_schema_version(); ++version) {
        const auto& migration = kMigrations[static_cast<std::size_t>(version)];
        database.run(migration.text);
        if (migration.column != nullptr) {
            add_missing(database, *migration.column);
        }
        database.run("PRAGMA user_version = " + std::to_string(version + 1));
    }
    database.run("COMMIT");
}

} // namespace qz::platform
