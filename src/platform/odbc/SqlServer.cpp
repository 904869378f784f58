// SQL Server 2016 SP1 or newer.
#include "platform/odbc/ServerDatabase.h"

#include <array>

namespace qz::platform {

namespace {

constexpr std::array<std::string_view, 4> kSession{
    // What an index with a condition asks for; drivers differ in what they set.
    "SET QUOTED_IDENTIFIER, ANSI_NULLS, ANSI_PADDING, ANSI_WARNINGS, ARITHABORT, CONCAT_NULL_YIELDS_NULL ON",
    "SET NUMERIC_ROUNDABORT OFF",
    "SET NOCOUNT OFF",
    "SET XACT_ABORT OFF",
};

// Names that are looked up have a width, for an index needs one.
constexpr std::array<std::string_view, 26> kFirstTables{
    R"sql(IF OBJECT_ID('users') IS NULL CREATE TABLE users (
    IDUserName bigint IDENTITY PRIMARY KEY,
    UserName nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    Password nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    IMClientInUse nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    FirstName nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    LastName nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    Email nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    AccountActive smallint DEFAULT 1,
    CreationTime datetime2(0) DEFAULT GETDATE(),
    Phone nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    Fax nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    HomePage nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    Country nvarchar(4000) COLLATE Latin1_General_100_CI_AS))sql",
    R"sql(IF OBJECT_ID('buddies') IS NULL CREATE TABLE buddies (
    IDBuddies bigint IDENTITY PRIMARY KEY,
    UserName nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    Buddy nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    [key] nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    Comment nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    [Group] nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    CreationTime datetime2(0) DEFAULT GETDATE()))sql",
    R"sql(IF OBJECT_ID('rooms') IS NULL CREATE TABLE rooms (
    IDRoom bigint IDENTITY PRIMARY KEY,
    RoomName nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    CreationTime datetime2(0) DEFAULT GETDATE(),
    [key] nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    UserName_Owner nvarchar(255) COLLATE Latin1_General_100_CI_AS))sql",
    R"sql(IF OBJECT_ID('messages') IS NULL CREATE TABLE messages (
    IDMessage bigint IDENTITY PRIMARY KEY,
    UserName_From nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    UserName_To nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    MsgID float,
    ReceiptRequested smallint DEFAULT 0,
    Sent smallint DEFAULT 0,
    SentTime datetime2(0),
    ReceivedTime datetime2(0),
    ExpirationTime datetime2(0),
    Delivered smallint DEFAULT 0,
    DeliveredTime datetime2(0),
    [Ignore] smallint DEFAULT 0))sql",
    R"sql(IF OBJECT_ID('log') IS NULL CREATE TABLE [log] (
    IDLog bigint IDENTITY PRIMARY KEY,
    ActionTime datetime2(0) DEFAULT GETDATE(),
    UserName nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    RemoteIP nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    Action nvarchar(4000) COLLATE Latin1_General_100_CI_AS))sql",
    R"sql(IF OBJECT_ID('command') IS NULL CREATE TABLE command (
    IDCommand bigint IDENTITY PRIMARY KEY,
    action nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    Parameters nvarchar(4000) COLLATE Latin1_General_100_CI_AS))sql",
    R"sql(IF OBJECT_ID('autoreply') IS NULL CREATE TABLE autoreply (
    IDAutoReply bigint IDENTITY PRIMARY KEY,
    UserName nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    Message nvarchar(4000) COLLATE Latin1_General_100_CI_AS,
    Enabled smallint DEFAULT 0))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'users_UserName')
    CREATE UNIQUE INDEX users_UserName ON users (UserName) WHERE UserName IS NOT NULL)sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'buddies_UserName_Buddy')
    CREATE INDEX buddies_UserName_Buddy ON buddies (UserName, Buddy))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'buddies_Buddy')
    CREATE INDEX buddies_Buddy ON buddies (Buddy))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'rooms_RoomName')
    CREATE INDEX rooms_RoomName ON rooms (RoomName))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'messages_MsgID')
    CREATE INDEX messages_MsgID ON messages (MsgID))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'messages_UserName_From_UserName_To_MsgID')
    CREATE INDEX messages_UserName_From_UserName_To_MsgID ON messages (UserName_From, UserName_To, MsgID))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'log_UserName_ActionTime')
    CREATE INDEX log_UserName_ActionTime ON log (UserName, ActionTime))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'autoreply_UserName')
    CREATE INDEX autoreply_UserName ON autoreply (UserName))sql",
    R"sql(IF OBJECT_ID('velto_changes') IS NULL
    CREATE TABLE velto_changes (name nvarchar(64) PRIMARY KEY, changes bigint NOT NULL))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM velto_changes WHERE name = 'users')
    INSERT INTO velto_changes VALUES ('users', 0))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM velto_changes WHERE name = 'buddies')
    INSERT INTO velto_changes VALUES ('buddies', 0))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM velto_changes WHERE name = 'rooms')
    INSERT INTO velto_changes VALUES ('rooms', 0))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM velto_changes WHERE name = 'command')
    INSERT INTO velto_changes VALUES ('command', 0))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM velto_changes WHERE name = 'autoreply')
    INSERT INTO velto_changes VALUES ('autoreply', 0))sql",
    R"sql(CREATE OR ALTER TRIGGER velto_users ON users AFTER INSERT, UPDATE, DELETE AS
    BEGIN SET NOCOUNT ON; UPDATE velto_changes SET changes = changes + 1 WHERE name = 'users' END)sql",
    R"sql(CREATE OR ALTER TRIGGER velto_buddies ON buddies AFTER INSERT, UPDATE, DELETE AS
    BEGIN SET NOCOUNT ON; UPDATE velto_changes SET changes = changes + 1 WHERE name = 'buddies' END)sql",
    R"sql(CREATE OR ALTER TRIGGER velto_rooms ON rooms AFTER INSERT, UPDATE, DELETE AS
    BEGIN SET NOCOUNT ON; UPDATE velto_changes SET changes = changes + 1 WHERE name = 'rooms' END)sql",
    R"sql(CREATE OR ALTER TRIGGER velto_command ON command AFTER INSERT, UPDATE, DELETE AS
    BEGIN SET NOCOUNT ON; UPDATE velto_changes SET changes = changes + 1 WHERE name = 'command' END)sql",
    R"sql(CREATE OR ALTER TRIGGER velto_autoreply ON autoreply AFTER INSERT, UPDATE, DELETE AS
    BEGIN SET NOCOUNT ON; UPDATE velto_changes SET changes = changes + 1 WHERE name = 'autoreply' END)sql",
};

/// Of the safeguards. The message is the one text that compares with case: it is never searched.
constexpr std::array<std::string_view, 4> kSafeguardTables{
    R"sql(IF OBJECT_ID('queue') IS NULL CREATE TABLE queue (
    IDQueue bigint IDENTITY PRIMARY KEY,
    UserName_From nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    UserName_To nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    MsgID float,
    Message nvarchar(max) COLLATE Latin1_General_100_BIN2,
    RoomName nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    ReceiptRequested smallint DEFAULT 0,
    ReceivedTime datetime2(0),
    ExpirationTime datetime2(0),
    Sent smallint DEFAULT 0,
    SentTime datetime2(0)))sql",
    R"sql(IF OBJECT_ID('queuecount') IS NULL CREATE TABLE queuecount (
    IDQueueCount bigint IDENTITY PRIMARY KEY,
    Accepted bigint DEFAULT 0,
    Confirmed bigint DEFAULT 0,
    Expired bigint DEFAULT 0))sql",
    R"sql(IF OBJECT_ID('lastlogon') IS NULL CREATE TABLE lastlogon (
    IDLastLogOn bigint IDENTITY PRIMARY KEY,
    UserName nvarchar(255) COLLATE Latin1_General_100_CI_AS,
    LogOnTime datetime2(0)))sql",
    R"sql(IF NOT EXISTS (SELECT 1 FROM sys.indexes WHERE name = 'lastlogon_UserName')
    CREATE UNIQUE INDEX lastlogon_UserName ON lastlogon (UserName) WHERE UserName IS NOT NULL)sql",
};

/// Snapshots have to be allowed by the database. Like this, what was read is locked until the end.
constexpr std::array<std::string_view, 2> kBeginReading{
    "SET TRANSACTION ISOLATION LEVEL SERIALIZABLE",
    "BEGIN TRANSACTION",
};

/// Texts of waiting messages with several recipients: the rows of `queue` refer to them.
constexpr std::array<std::string_view, 2> kQueueTexts{
    R"sql(IF OBJECT_ID('queuetext') IS NULL CREATE TABLE queuetext (
    IDQueueText bigint IDENTITY PRIMARY KEY,
    Message nvarchar(max) COLLATE Latin1_General_100_BIN2))sql",
    R"sql(IF COL_LENGTH('queue', 'IDQueueText') IS NULL ALTER TABLE queue ADD IDQueueText bigint)sql",
};

constexpr std::array<std::span<const std::string_view>, 3> kMigrations{
    kFirstTables, kSafeguardTables, kQueueTexts};

} // namespace

const ServerDatabase kSqlServer{
    .name = "Microsoft SQL Server",
    .overrides = &DatabaseOverrides::sql_server,
    .session = kSession,
    .lock_patience = "SET LOCK_TIMEOUT {}",
    .time_zone = "",
    .begin = "BEGIN TRANSACTION",
    .begin_reading = kBeginReading,
    .commit = "IF @@TRANCOUNT > 0 COMMIT TRANSACTION",
    .rollback = "IF @@TRANCOUNT > 0 ROLLBACK TRANSACTION",
    .transaction_count = "SELECT @@TRANCOUNT",
    // Only an administrator may end a session.
    .name_session = "",
    .find_session = "",
    .end_session = "",
    // A table with triggers gives no keys by OUTPUT.
    .key_at_end = "; SELECT CAST(SCOPE_IDENTITY() AS bigint) AS {}",
    .default_values = " DEFAULT VALUES",
    .reserve_keys = "",
    .columns = "SELECT TABLE_NAME, COLUMN_NAME, DATA_TYPE FROM INFORMATION_SCHEMA.COLUMNS "
               "ORDER BY TABLE_NAME, ORDINAL_POSITION",
    .before_keys = "SET IDENTITY_INSERT [{}] ON",
    .after_keys = "SET IDENTITY_INSERT [{}] OFF",
    .advance_counter = "",
    .migrations = kMigrations,
};

} // namespace qz::platform
